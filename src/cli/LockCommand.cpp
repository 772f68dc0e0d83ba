#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Directories.h"
#include "platform/Paths.h"
#include "platform/UserDefaults.h"

namespace harbor::cli {
namespace {
namespace fs = std::filesystem;

struct LockFolderOptions {
  std::string path;
  std::string password;
};

int runLockFolder(const LockFolderOptions& opts) {
  std::string root = FileUtil::documentDirectory();
  std::error_code ec;
  fs::path full = fs::absolute(opts.path, ec).lexically_normal();
  std::string text = full.string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  if (relativePathBelow(text, root).empty()) {
    return fail("lock folder", opts.path + " is not below the document root " + root);
  }
  if (auto problem = checkPath(text, PathNeed::Folder)) {
    return fail("lock folder", opts.path + ": " + *pathProblem(text, PathNeed::Folder));
  }
  if (!FileManagerUtil::saveFilePassword(text, opts.password)) {
    return fail("lock folder", "cannot store the password");
  }
  UserDefaults::standard().synchronize();
  std::cout << (opts.password.empty() ? "unlocked " : "locked ") << text << "\n";
  return 0;
}

void addLockCommand(CLI::App& app, int& exitCode) {
  CLI::App* lock = app.add_subcommand("lock", "Passwords that guard folders");
  lock->require_subcommand(1);
  auto folder = std::make_shared<LockFolderOptions>();
  CLI::App* cmd = lock->add_subcommand(
      "folder", "Set a folder's password, or remove it when no PASSWORD is given");
  cmd->add_option("PATH", folder->path, "A folder below the document root")->required();
  cmd->add_option("PASSWORD", folder->password, "The new password (none: unlock)");
  cmd->callback([folder, &exitCode] { exitCode = runLockFolder(*folder); });
}

}  // namespace

const CommandRegistrar lockCommand(75, addLockCommand);

}  // namespace harbor::cli
