// harbor cloud: the cloud drive over a local sync folder, as scripts use it.
#include <chrono>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "cli/Commands.h"
#include "cli/InterruptWatch.h"
#include "cli/Output.h"
#include "cloud/CloudPath.h"
#include "cloud/CloudProvider.h"
#include "cloud/DocumentBrowserQuery.h"
#include "cloud/ICloudBase.h"
#include "platform/MainQueue.h"
#include "platform/Strings.h"

namespace harbor::cli {
namespace {
namespace fs = std::filesystem;

struct CloudOptions {
  std::string cloudDir;
  std::string path;  // ls
  bool recursive = false;
  bool watch = false;
  std::string first, second;  // operands of the operations
  bool json = false;
};

std::string isoDate(CloudItem::Date date) {
  std::time_t t = std::chrono::system_clock::to_time_t(date);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

// The provider from the flag or the environment, with its documents folder
// made; none (and the message printed) when no usable container is set.
std::shared_ptr<CloudProvider> provider(const CloudOptions& opts, const char* command) {
  auto p = LocalSyncFolderProvider::fromEnvironment(opts.cloudDir);
  if (!p) {
    fail(command, "no cloud folder: give --cloud-dir DIR or set HARBOR_CLOUD_DIR", 2);
    return nullptr;
  }
  std::error_code ec;
  fs::create_directories(p->documentsURL(), ec);
  if (!p->isAvailable()) {
    fail(command, p->containerURL() + ": the cloud folder is missing or not writable");
    return nullptr;
  }
  CloudProvider::setShared(p);
  return p;
}

int runLs(const CloudOptions& opts) {
  if (opts.cloudDir.empty() && !std::getenv("HARBOR_CLOUD_DIR"))
    return fail("cloud ls", "no cloud folder: give --cloud-dir DIR or set HARBOR_CLOUD_DIR", 2);
  auto p = provider(opts, "cloud ls");
  if (!p) return 1;
  auto folder = cloudPathInside(p->documentsURL(), opts.path.empty() ? "." : opts.path);
  if (!folder) return fail("cloud ls", opts.path + ": outside the cloud drive");
  std::error_code ec;
  if (!fs::is_directory(*folder, ec)) return fail("cloud ls", opts.path + ": no such folder");
  DocumentBrowserQuery query(p, *folder, opts.recursive);
  auto toJson = [&](const DocumentBrowserModelObject& o) {
    return ordered_json{{"filename", o._filename},
                        {"path", (fs::path(opts.path.empty() ? "" : opts.path) / o._identifier)
                                     .lexically_normal()
                                     .generic_string()},
                        {"isDirectory", o._isDirectory},
                        {"totalBytes", o.totalBytes},
                        {"lastModifiedDate", isoDate(o.lastModifiedDate)},
                        {"downloadingStatus", o._metadataItem.downloadingStatus()}};
  };
  query.update();
  if (opts.json && !opts.watch) {
    ordered_json list = ordered_json::array();
    for (const auto& o : query.objects()) list.push_back(toJson(o));
    printJson(list);
  } else if (!opts.watch || !opts.json) {
    for (const auto& o : query.objects())
      std::cout << o._identifier << (o._isDirectory ? "/" : "") << "\t" << o.totalBytes << "\t"
                << o._metadataItem.downloadingStatus() << "\n";
    std::cout.flush();
  }
  if (!opts.watch) return 0;
  InterruptWatch interrupt;
  query.startWatching([](const DocumentBrowserQuery::Changes& changes) {
    ordered_json line{
        {"added", changes.added}, {"removed", changes.removed}, {"changed", changes.changed}};
    std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
  });
  // The watches report on the main queue; this loop is it.
  while (!interrupt.interrupted())
    MainQueue::shared().runUntil([&] { return interrupt.interrupted(); },
                                 std::chrono::milliseconds(200));
  return 0;
}

enum class Op { upload, download, mv, mkdir, rm };

int runOp(Op op, const CloudOptions& opts) {
  static const char* names[] = {"cloud upload", "cloud download", "cloud mv", "cloud mkdir",
                                "cloud rm"};
  const char* command = names[static_cast<int>(op)];
  if (opts.cloudDir.empty() && !std::getenv("HARBOR_CLOUD_DIR"))
    return fail(command, "no cloud folder: give --cloud-dir DIR or set HARBOR_CLOUD_DIR", 2);
  auto p = provider(opts, command);
  if (!p) return 1;
  const std::string docs = p->documentsURL();
  auto inside = [&](const std::string& rel, bool keepLink) -> std::optional<std::string> {
    auto r = cloudPathInside(docs, rel, keepLink);
    if (!r) fail(command, rel + ": outside the cloud drive");
    return r;
  };
  std::unique_ptr<ICloudBase> operation;
  switch (op) {
    case Op::upload: {
      if (auto problem = checkPath(opts.first, PathNeed::Exists)) return fail(command, *problem);
      auto dst = inside(opts.second, false);
      if (!dst) return 1;
      operation = ICloudUpload::instanceWithPath(fs::absolute(opts.first).string(), *dst, nullptr);
      break;
    }
    case Op::download: {
      auto src = inside(opts.first, false);
      if (!src) return 1;
      operation =
          ICloudDownload::instanceWithPath(*src, fs::absolute(opts.second).string(), nullptr);
      break;
    }
    case Op::mv: {
      auto src = inside(opts.first, true), dst = inside(opts.second, false);
      if (!src || !dst) return 1;
      operation = ICloudMove::instanceWithPath(*src, *dst, nullptr);
      break;
    }
    case Op::mkdir: {
      auto dst = inside(opts.first, false);
      if (!dst) return 1;
      operation = ICloudCreateDir::instanceWithPath(*dst, nullptr);
      break;
    }
    case Op::rm: {
      auto dst = inside(opts.first, true);
      if (!dst) return 1;
      if (*dst == fs::weakly_canonical(docs).string())
        return fail(command, "the documents folder itself can not be removed");
      std::error_code ec;
      if (!fs::exists(fs::symlink_status(*dst, ec)))
        return fail(command, opts.first + ": no such file or folder");
      operation = ICloudDelete::instanceWithPath(*dst, nullptr);
      break;
    }
  }
  ICloudBase* raw = operation.get();
  {
    InterruptWatch interrupt([raw] { raw->stop(localizedString("Cancelled")); });
    operation->start();
    operation->waitRun();
  }
  auto error = operation->error();
  if (opts.json) {
    ordered_json e = nullptr;
    if (error)
      e = ordered_json{
          {"domain", error->domain}, {"code", error->code}, {"message", error->message}};
    printJson(ordered_json{
        {"path", operation->path()},
        {"destination", operation->destination().empty() ? ordered_json(nullptr)
                                                         : ordered_json(operation->destination())},
        {"error", e}});
  }
  if (error) {
    if (!opts.json) fail(command, error->message);
    return 1;
  }
  return 0;
}

void addCloudDir(CLI::App* cmd, std::shared_ptr<CloudOptions> opts) {
  cmd->add_option("--cloud-dir", opts->cloudDir,
                  "The folder a sync client keeps (default: $HARBOR_CLOUD_DIR)")
      ->type_name("DIR");
}

void addCloudCommands(CLI::App& app, int& exitCode) {
  auto opts = std::make_shared<CloudOptions>();
  CLI::App* cloud = app.add_subcommand(
      "cloud", "The cloud drive over a local sync folder: list, upload, download, move, remove");
  cloud->require_subcommand(1);
  addCloudDir(cloud, opts);

  CLI::App* ls = cloud->add_subcommand("ls", "List a folder of the drive");
  addCloudDir(ls, opts);
  ls->add_option("PATH", opts->path, "Folder relative to the drive's documents");
  ls->add_flag("--recursive", opts->recursive, "List the folders below as well");
  ls->add_flag("--watch", opts->watch,
               "Keep watching; with --json one line {added, removed, changed} per change");
  addJsonFlag(
      ls, opts->json,
      "Print {filename, path, isDirectory, totalBytes, lastModifiedDate, downloadingStatus}");
  ls->callback([opts, &exitCode] { exitCode = runLs(*opts); });

  struct Subcommand {
    const char* name;
    const char* help;
    Op op;
    const char* first;
    const char* second;
  };
  static const Subcommand subcommands[] = {
      {"upload", "Copy a local file or folder to the drive, replacing the target", Op::upload,
       "LOCAL", "CPATH"},
      {"download", "Copy an item of the drive to a new local path, fetching it first", Op::download,
       "CPATH", "LOCAL"},
      {"mv", "Move an item within the drive", Op::mv, "CSRC", "CDST"},
      {"mkdir", "Create a folder (with its parents) on the drive", Op::mkdir, "CPATH", nullptr},
      {"rm", "Remove an item of the drive (a link, never its target)", Op::rm, "CPATH", nullptr},
  };
  for (const Subcommand& s : subcommands) {
    CLI::App* cmd = cloud->add_subcommand(s.name, s.help);
    addCloudDir(cmd, opts);
    cmd->add_option(s.first, opts->first, s.first)->required();
    if (s.second) cmd->add_option(s.second, opts->second, s.second)->required();
    addJsonFlag(cmd, opts->json, "Print {path, destination, error}");
    const Op op = s.op;
    cmd->callback([opts, op, &exitCode] { exitCode = runOp(op, *opts); });
  }
}

}  // namespace

const CommandRegistrar cloudCommands(80, addCloudCommands);

}  // namespace harbor::cli
