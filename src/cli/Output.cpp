#include "cli/Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

namespace harbor::cli {

int fail(std::string_view command, std::string_view message, int code) {
  warn(command, message);
  return code;
}

void warn(std::string_view command, std::string_view message) {
  std::cerr << "harbor: ";
  if (!command.empty()) std::cerr << command << ": ";
  std::cerr << message << "\n";
}

std::optional<std::string> pathProblem(const std::string& path, PathNeed need) {
  if (path.empty()) return "an empty path";
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    const int err = errno;
    struct stat lst {};
    if (err == ENOENT && ::lstat(path.c_str(), &lst) == 0) return "a link to nothing";
    if (err == ENOENT) return "no such file or folder";
    if (err == ENOTDIR) return "a part of the path is not a folder";
    if (err == EACCES) return "permission denied";
    return std::strerror(err);
  }
  const bool folder = S_ISDIR(st.st_mode);
  if (need == PathNeed::File && folder) return "is a folder, not a file";
  if (need == PathNeed::File && !S_ISREG(st.st_mode)) return "not a regular file";
  if (need == PathNeed::Folder && !folder) return "not a folder";
  const int mode = folder ? (R_OK | X_OK) : R_OK;
  if (::access(path.c_str(), mode) != 0 && errno == EACCES) return "permission denied";
  return std::nullopt;
}

std::optional<std::string> checkPath(const std::string& path, PathNeed need) {
  if (auto problem = pathProblem(path, need)) return path + ": " + *problem;
  return std::nullopt;
}

std::string jsonText(const ordered_json& j) {
  return j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

void printJson(const ordered_json& j) {
  std::cout << jsonText(j) << "\n";
}

CLI::Option* addJsonFlag(CLI::App* cmd, bool& json, const std::string& what) {
  return cmd->add_flag("--json", json, what);
}

void PasswordSource::addOptions(CLI::App* cmd, const std::string& what) {
  auto* flag = cmd->add_option("--password", password, what);
  auto* fileOpt =
      cmd->add_option("--password-file", file, "Read the password from the first line of FILE")
          ->type_name("FILE");
  flag->excludes(fileOpt);
  cmd->footer(cmd->get_footer() + (cmd->get_footer().empty() ? "" : "\n") +
              "Without --password or --password-file the password comes from $HARBOR_PASSWORD; "
              "reading an encrypted archive on a terminal with none given asks for it.");
}

std::optional<std::string> PasswordSource::resolve(std::string& error) const {
  if (!password.empty()) return password;
  if (!file.empty()) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      error = "cannot read the password file " + file;
      if (auto problem = pathProblem(file, PathNeed::File)) error += ": " + *problem;
      return std::nullopt;
    }
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
  }
  if (const char* env = std::getenv("HARBOR_PASSWORD"); env && *env) return std::string(env);
  return std::nullopt;
}

std::string PasswordSource::origin() const {
  if (!password.empty()) return "--password";
  if (!file.empty()) return file;
  return "HARBOR_PASSWORD";
}

std::optional<std::string> promptPassword(const std::string& prompt) {
  // Only a person at a terminal is asked; scripts get the password error.
  if (::isatty(STDIN_FILENO) != 1) return std::nullopt;
  const int fd = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  termios old{};
  const bool haveTerm = ::tcgetattr(fd, &old) == 0;
  if (haveTerm) {
    termios quiet = old;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ECHONL;
    ::tcsetattr(fd, TCSAFLUSH, &quiet);
  }
  [[maybe_unused]] auto w = ::write(fd, prompt.data(), prompt.size());
  std::string line;
  char c = 0;
  bool any = false;
  while (::read(fd, &c, 1) == 1) {
    any = true;
    if (c == '\n') break;
    if (c != '\r') line += c;
  }
  if (haveTerm) ::tcsetattr(fd, TCSAFLUSH, &old);
  ::close(fd);
  if (!any) return std::nullopt;
  return line;
}

}  // namespace harbor::cli
