#pragma once

// What every command shares in how it talks to a user or a script: errors in
// one form, JSON in one style, paths shown as they were given, passwords
// taken from a flag, a file, the environment or a prompt.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace harbor::cli {

using ordered_json = nlohmann::ordered_json;

// "harbor: COMMAND: message" on standard error; returns `code`.
int fail(std::string_view command, std::string_view message, int code = 1);
void warn(std::string_view command, std::string_view message);

// What a path must be for a command to use it.
enum class PathNeed { File, Folder, Exists };
// The reason a path given by the user is unusable ("no such file or folder",
// "is a folder", "permission denied", ...), or nothing when it will do.
std::optional<std::string> pathProblem(const std::string& path, PathNeed need);
// "PATH: reason" for a path that is unusable, using the path as given.
std::optional<std::string> checkPath(const std::string& path, PathNeed need);

// One JSON style for every command: keys in the order written, two-space
// indent, bytes that are not UTF-8 replaced rather than failing.
std::string jsonText(const ordered_json& j);
void printJson(const ordered_json& j);
// Adds `--json` to a command.
CLI::Option* addJsonFlag(CLI::App* cmd, bool& json, const std::string& what = "Print JSON");

// `--password P`, `--password-file FILE`, or $HARBOR_PASSWORD, first given wins.
struct PasswordSource {
  std::string password;
  std::string file;

  void addOptions(CLI::App* cmd, const std::string& what);
  // The password, or nothing when none was given. A password file that
  // cannot be read is an error (its text in `error`).
  std::optional<std::string> resolve(std::string& error) const;
  // Where the password came from, for messages.
  std::string origin() const;
};

// Asks on the terminal without echo; nothing when there is no terminal.
std::optional<std::string> promptPassword(const std::string& prompt);

}  // namespace harbor::cli
