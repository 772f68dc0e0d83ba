#include <cstdio>
#include <string>

#include "cli/Commands.h"
#include "platform/Directories.h"

int main(int argc, char** argv) {
  CLI::App app{"Harbor: a source-code and web-page editor with a file manager around it.",
               "harbor"};
  app.set_version_flag("--version", std::string("harbor ") + HARBOR_VERSION);
  std::string root;
  app.add_option("--root", root,
                 "Document root (default: $HARBOR_ROOT, else ~/.local/share/harbor/Documents)")
      ->type_name("DIR");
  app.footer("Exit codes: 0 success, 1 failure, 2 bad usage.");

  int exitCode = 0;
  harbor::cli::installCommands(app, exitCode);
  app.parse_complete_callback([&] {
    if (!root.empty()) harbor::Directories::setDocumentRootOverride(root);
  });

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
  if (app.get_subcommands().empty()) return harbor::cli::runMainJob();
  return exitCode;
}
