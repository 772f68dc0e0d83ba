#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "cli/Commands.h"
#include "cli/InterruptWatch.h"
#include "cli/Output.h"
#include "filemanager/FilePresenter.h"
#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FilePropertyTotalFiles.h"
#include "filemanager/FilePropertyTotalSize.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/Directories.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Unicode.h"

namespace harbor::cli {
namespace fs = std::filesystem;
namespace {

std::string absolutePath(const std::string& p) {
  std::error_code ec;
  std::string out = fs::absolute(p, ec).lexically_normal().string();
  if (ec) out = p;
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

bool exists(const std::string& p) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(p, ec));
}

// ---- ls --------------------------------------------------------------------

struct LsOptions {
  std::string dir;
  std::string order;
  bool desc = false;
  bool icons = false;
  std::vector<std::string> filter;
  std::optional<std::string> search;
  bool json = false;
};

class ListingDelegate : public IFilePresenter {
 public:
  explicit ListingDelegate(bool ascending) : ascending_(ascending) {}
  void reloadData() override {}
  bool isOrderAsc() const override { return ascending_; }
  void restoreSearchState(bool) override {}

 private:
  bool ascending_;
};

int runLs(const LsOptions& opts) {
  if (!opts.dir.empty()) {
    if (auto problem = checkPath(opts.dir, PathNeed::Folder)) return fail("ls", *problem);
  }
  std::string dir = opts.dir.empty() ? FileUtil::documentDirectory() : absolutePath(opts.dir);
  if (!FileUtil::isDirectoryFilePath(dir)) return fail("ls", dir + ": not a folder");
  // A folder outside the document root is listed as a root of its own.
  const std::string root = FileUtil::documentDirectory();
  if (dir != root && FileUtil::getRelativePath(dir, root).empty()) {
    Directories::setDocumentRootOverride(dir);
  }

  ListingDelegate delegate(!opts.desc);
  FilePresenter presenter(dir, &delegate);
  if (!opts.order.empty()) {
    static const std::vector<std::string> orders{"name", "date", "type", "size"};
    auto it = std::find(orders.begin(), orders.end(), opts.order);
    presenter.setDisplayType(static_cast<int>(it - orders.begin()));
  }
  presenter.setShowItemstype(opts.icons ? FilePresenter::kShowIcons : FilePresenter::kShowList);
  if (!opts.filter.empty()) {
    ExtensionMap filter;
    for (const auto& f : opts.filter) {
      std::string e = toLower(trim(f));
      e.erase(0, e.find_first_not_of('.'));
      if (!e.empty()) filter.emplace(e, "");
    }
    presenter.setFileterType(std::move(filter));
  }
  if (opts.search) {
    // Searches run on a worker, as a browser runs them.
    std::thread worker([&] {
      CancellationToken token;
      CurrentCancellationScope scope(token);
      presenter.searchThread(*opts.search);
    });
    worker.join();
  }
  presenter.configureSections();

  const auto& sections = presenter.currentItems();
  const auto& titles = presenter.collation();
  if (opts.json) {
    ordered_json out = ordered_json::array();
    for (std::size_t i = 0; i < sections.size(); ++i) {
      ordered_json title = nullptr;
      if (titles && i < titles->size()) title = (*titles)[i];
      out.push_back({{"title", std::move(title)}, {"items", sections[i]}});
    }
    ordered_json listing{{"path", dir}, {"sections", std::move(out)}};
    if (presenter.isSearchTruncated()) listing["truncated"] = true;
    printJson(listing);
    return 0;
  }
  std::size_t shown = 0;
  for (std::size_t i = 0; i < sections.size(); ++i) {
    if (titles && i < titles->size()) std::cout << (*titles)[i] << ":\n";
    for (const auto& path : sections[i]) std::cout << (titles ? "  " : "") << path << "\n";
    shown += sections[i].size();
  }
  if (presenter.isSearchTruncated()) {
    std::cout << "(list cut after " << shown << " hits: the search stops at about "
              << FilePropertySearchFiles::kHitLimit - 1 << ")\n";
  }
  return 0;
}

// ---- du --------------------------------------------------------------------

struct DuOptions {
  std::vector<std::string> paths;
  bool json = false;
};

int runDu(const DuOptions& opts) {
  std::vector<std::string> paths;
  for (const auto& p : opts.paths) {
    if (!exists(p)) return fail("du", p + ": no such file or folder");
    paths.push_back(absolutePath(p));
  }
  auto walk = paths.size() == 1 ? FilePropertyFileNumAndSize::instanceWithFileURL(paths.front())
                                : FilePropertyFileNumAndSize::instanceWithURLs(paths);
  walk->execute();
  if (opts.json) {
    printJson(ordered_json{{"totalSize", walk->totalSize()},
                           {"fileNumber", walk->fileNumber()},
                           {"folderNumber", walk->folderNumber()}});
  } else {
    std::cout << walk->totalSize() << " bytes, " << walk->fileNumber() << " files, "
              << walk->folderNumber() << " folders\n";
  }
  return 0;
}

// ---- cp --------------------------------------------------------------------

struct CpOptions {
  std::vector<std::string> paths;  // sources, then the destination
  bool json = false;
};

// A bar on standard error, redrawn a few times a second.
class ProgressBar {
 public:
  ProgressBar(const ActionProgressCounter& counter, bool enabled) : counter_(counter) {
    if (!enabled) return;
    thread_ = std::thread([this] {
      std::unique_lock lock(mutex_);
      while (!done_) {
        draw();
        wake_.wait_for(lock, std::chrono::milliseconds(200));
      }
      draw();
      std::fputs("\n", stderr);
    });
  }
  ~ProgressBar() {
    {
      std::lock_guard lock(mutex_);
      done_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
  }

 private:
  void draw() {
    const std::uint64_t total = counter_.totalSize();
    const std::uint64_t current = std::min(counter_.currentSize(), total);
    const int width = 30;
    const int filled = total == 0 ? width : static_cast<int>(current * width / total);
    const int percent = total == 0 ? 100 : static_cast<int>(current * 100 / total);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(width, '.');
    std::fprintf(stderr, "\r[%s] %3d%%  %s / %s   ", bar.c_str(), percent,
                 FileUtil::formatSize(current).c_str(), FileUtil::formatSize(total).c_str());
    std::fflush(stderr);
  }

  const ActionProgressCounter& counter_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  std::thread thread_;
};

int runCp(const CpOptions& opts) {
  if (opts.paths.size() < 2)
    return fail("cp", "give at least one source and a destination folder", 2);
  std::vector<std::string> sources(opts.paths.begin(), opts.paths.end() - 1);
  const std::string destination = absolutePath(opts.paths.back());
  for (auto& s : sources) {
    if (!exists(s)) return fail("cp", s + ": no such file or folder");
    s = absolutePath(s);
  }
  if (auto problem = checkPath(opts.paths.back(), PathNeed::Folder))
    return fail("cp", "the destination must be an existing folder: " + *problem);

  InterruptWatch interrupt;
  ActionProgressCounter progress;
  bool ok = false;
  std::optional<Error> error;
  std::vector<std::string> landed;
  {
    const bool showBar = ::isatty(STDERR_FILENO) == 1;
    if (showBar) progress.setTotalSize(FilePropertyTotalSize::filesizeWithURLs(sources));
    // Interrupted while sizing: the broadcast came before the copy existed.
    if (!interrupt.interrupted()) {
      ProgressBar bar(progress, showBar);
      FilePropertyCopyURLS copy(sources, destination, &progress);
      ok = copy.execute();
      error = copy.error();
      landed = copy.copiedPaths();
    }
  }
  if (!ok) {
    if (interrupt.interrupted()) return fail("cp", "cancelled; nothing was copied");
    return fail("cp", error ? error->message : std::string("copy failed"));
  }
  if (opts.json) {
    printJson(ordered_json{{"copied", landed}});
    return 0;
  }
  for (const auto& path : landed) std::cout << path << "\n";
  return 0;
}

void addFileCommands(CLI::App& app, int& exitCode) {
  auto ls = std::make_shared<LsOptions>();
  CLI::App* lsCmd = app.add_subcommand("ls", "List a folder as the file browser shows it");
  lsCmd->add_option("DIR", ls->dir, "Folder to list (default: the document root)");
  lsCmd->add_option("--order", ls->order, "Sort order (default: the saved setting)")
      ->check(CLI::IsMember({"name", "date", "type", "size"}));
  lsCmd->add_flag("--desc", ls->desc, "Descending order");
  lsCmd->add_flag("--icons", ls->icons, "Group as the icon view does");
  lsCmd->add_option("--filter", ls->filter, "Only files with these extensions (folders stay)")
      ->delimiter(',')
      ->type_name("EXT,...");
  lsCmd->add_option("--search", ls->search, "Show the files below DIR whose name contains TEXT")
      ->type_name("TEXT");
  lsCmd->add_flag("--json", ls->json, "Print JSON");
  lsCmd->callback([ls, &exitCode] { exitCode = runLs(*ls); });

  auto du = std::make_shared<DuOptions>();
  CLI::App* duCmd = app.add_subcommand("du", "Total size, files and folders of a selection");
  duCmd->add_option("PATH", du->paths, "Files or folders")->required();
  duCmd->add_flag("--json", du->json, "Print JSON");
  duCmd->callback([du, &exitCode] { exitCode = runDu(*du); });

  auto cp = std::make_shared<CpOptions>();
  CLI::App* cpCmd = app.add_subcommand(
      "cp",
      "Copy files and folders into a folder, all or nothing; names already taken get "
      "a number");
  cpCmd->add_option("SRC", cp->paths, "Sources, then the destination folder (SRC... DEST)")
      ->required()
      ->expected(2, -1);
  addJsonFlag(cpCmd, cp->json, "Print {copied: [paths where the copies landed]}");
  cpCmd->callback([cp, &exitCode] { exitCode = runCp(*cp); });
}

}  // namespace

const CommandRegistrar fileCommands(40, addFileCommands);

}  // namespace harbor::cli
