#include <filesystem>
#include <iostream>
#include <memory>
#include <set>
#include <vector>

#include "app/AppDelegate.h"
#include "cli/Commands.h"
#include "cli/Output.h"
#include "filemanager/FileUtil.h"

namespace harbor::cli {
namespace fs = std::filesystem;
namespace {

struct ImportOptions {
  std::vector<std::string> paths;
  bool inPlace = false;
  bool json = false;
};

std::set<std::string> namesIn(const fs::path& folder) {
  std::set<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    names.insert(it->path().filename().string());
  }
  return names;
}

int runImport(const ImportOptions& opts) {
  for (const auto& p : opts.paths) {
    std::error_code ec;
    if (!fs::exists(fs::symlink_status(p, ec)))
      return fail("import", p + ": no such file or folder");
  }
  AppDelegate app;
  const fs::path root = FileUtil::documentDirectory();
  const fs::path imported = root / "Imported";
  const std::set<std::string> before = namesIn(imported);

  for (const auto& p : opts.paths) {
    std::string handed = fs::absolute(p).lexically_normal().string();
    if (!opts.inPlace) {
      // Another application hands a copy over through Inbox, one at a time.
      const std::string inbox = (root / "Inbox").string();
      FileUtil::createFolder(inbox);
      const std::string copy = FileUtil::getCreateName(inbox, FileUtil::getFileName(handed));
      if (!FileUtil::copyItem(handed, copy, nullptr))
        return fail("import", "cannot copy " + p + " into " + inbox);
      handed = copy;
    }
    app.openURL("file://" + handed);
  }

  std::vector<std::string> arrived;
  for (const auto& name : namesIn(imported)) {
    if (!before.count(name)) arrived.push_back((imported / name).string());
  }
  if (opts.json) {
    printJson(ordered_json{{"imported", arrived}});
  } else {
    for (const auto& path : arrived) std::cout << path << "\n";
  }
  return 0;
}

}  // namespace

namespace {
void addImportCommand(CLI::App& app, int& exitCode) {
  auto opts = std::make_shared<ImportOptions>();
  CLI::App* cmd = app.add_subcommand(
      "import", "Hand files over to Harbor as another application would; they arrive in Imported");
  cmd->add_option("PATH", opts->paths, "Files or folders to hand over")->required();
  cmd->add_flag("--in-place", opts->inPlace,
                "Hand over the original instead of a copy placed in Inbox");
  addJsonFlag(cmd, opts->json, "Print {imported: [where the files arrived]}");
  cmd->callback([opts, &exitCode] { exitCode = runImport(*opts); });
}

}  // namespace

const CommandRegistrar importCommand(90, addImportCommand);

}  // namespace harbor::cli
