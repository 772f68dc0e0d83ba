#include <cstdio>
#include <functional>
#include <string>

#include "cli/Commands.h"
#include "platform/Directories.h"

namespace {

// `--root` is taken before or after any subcommand: every command gets its
// own copy of the option, all setting the one document root.
void addRootOption(CLI::App& app, const std::string& help) {
  app.add_option("--root", help)->type_name("DIR")->each([](const std::string& dir) {
    harbor::Directories::setDocumentRootOverride(dir);
  });
  for (CLI::App* sub : app.get_subcommands({})) addRootOption(*sub, help);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Harbor: a source-code and web-page editor with a file manager around it.",
               "harbor"};
  app.set_version_flag("--version", std::string("harbor ") + HARBOR_VERSION);
  bool json = false;
  app.add_flag("--json", json, "With no command: print the main job's listing as JSON");
  app.footer("Exit codes: 0 success, 1 failure, 2 bad usage.");

  int exitCode = 0;
  harbor::cli::installCommands(app, exitCode);
  addRootOption(app, "Document root (default: $HARBOR_ROOT, else ~/.local/share/harbor/Documents)");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  }
  if (app.get_subcommands().empty()) return harbor::cli::runMainJob(json);
  return exitCode;
}
