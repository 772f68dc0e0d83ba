#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "archive/7z/U7zZip.h"
#include "archive/IArchive.h"
#include "archive/ZipBase.h"
#include "archive/zip/UZipFileArchive.h"
#include "cli/Commands.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Unicode.h"

namespace harbor::cli {
namespace fs = std::filesystem;
namespace {

struct ArchiveOptions {
  std::string file;
  std::string destination;
  std::string entry;
  std::string password;
  std::vector<std::string> paths;
  bool json = false;
};

// A one-line bar on stderr, only when stderr is a terminal.
class TerminalProgress : public ActionProgressCounter {
 public:
  explicit TerminalProgress(std::uint64_t total) : enabled_(::isatty(STDERR_FILENO) == 1) {
    setTotalSize(total);
  }
  ~TerminalProgress() override {
    if (enabled_ && shown_) std::fprintf(stderr, "\r%*s\r", 60, "");
  }
  using ActionProgressCounter::progressFinished;
  void progressFinished(std::uint64_t units) override {
    ActionProgressCounter::progressFinished(units);
    draw();
  }
  void progressUpdateCurrentSize(std::uint64_t position) override {
    ActionProgressCounter::progressUpdateCurrentSize(position);
    draw();
  }

 private:
  void draw() {
    if (!enabled_ || totalSize() == 0) return;
    const double f = std::min(1.0, double(currentSize()) / double(totalSize()));
    const int width = 40;
    const int filled = int(f * width);
    std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(filled, '#').c_str(),
                 std::string(width - filled, ' ').c_str(), int(f * 100));
    std::fflush(stderr);
    shown_ = true;
  }
  bool enabled_;
  bool shown_ = false;
};

std::string isoDate(const std::optional<std::chrono::system_clock::time_point>& date) {
  if (!date) return "";
  std::time_t t = std::chrono::system_clock::to_time_t(*date);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

void collect(const ZipEntry& node, std::vector<const ZipEntry*>& out) {
  for (const auto& child : node.children()) {
    out.push_back(child.get());
    collect(*child, out);
  }
}

// 2 for a password problem, 1 for anything else.
int reportFailure(const IArchive& archive, const std::string& what) {
  const auto error = archive.archiveError();
  const std::string message = error ? error->message : "failed";
  if (archive.isPasswordFailure()) {
    std::cerr << "harbor: archive " << what << ": "
              << (message.empty() ? "a wrong or missing password" : message)
              << " (wrong or missing password)\n";
    return 2;
  }
  std::cerr << "harbor: archive " << what << ": " << message << "\n";
  return 1;
}

std::unique_ptr<IArchive> openReader(const ArchiveOptions& opts, int& exitCode) {
  std::error_code ec;
  if (!fs::is_regular_file(opts.file, ec)) {
    std::cerr << "harbor: archive: no such file: " << opts.file << "\n";
    exitCode = 1;
    return nullptr;
  }
  auto archive = ArchiveFactory::createReader(opts.file, opts.password);
  if (!archive) {
    std::cerr << "harbor: archive: not an archive format Harbor reads: " << opts.file << "\n";
    exitCode = 1;
  }
  return archive;
}

int runList(const ArchiveOptions& opts) {
  int code = 0;
  auto archive = openReader(opts, code);
  if (!archive) return code;
  const bool listed = archive->listFiles();
  std::vector<const ZipEntry*> entries;
  collect(*archive->rootEntry(), entries);
  // A list that stopped keeps what it had: shown, then the failure. Names
  // hidden behind a password still give the JSON saying so.
  if (!listed && entries.empty() && !(opts.json && archive->isEncryptedFileName()))
    return reportFailure(*archive, "list");
  const bool encrypted = archive->isEncrypted();
  if (opts.json) {
    nlohmann::json out;
    out["format"] = archive->formatName();
    out["encrypted"] = encrypted;
    out["encryptedFileName"] = archive->isEncryptedFileName();
    out["entries"] = nlohmann::json::array();
    for (const auto* e : entries) {
      nlohmann::json j;
      j["path"] = e->path();
      j["isLeaf"] = e->isLeaf();
      j["size"] = e->size();
      j["packedSize"] = e->isLeaf() ? e->compressedSize() : e->compressTotalSize();
      j["crc"] = e->crc();
      const std::string date = isoDate(e->date());
      j["date"] = date.empty() ? nlohmann::json(nullptr) : nlohmann::json(date);
      out["entries"].push_back(j);
    }
    std::cout << out.dump(2) << "\n";
  } else {
    for (const auto* e : entries) {
      std::printf("%12llu  %-20s  %s\n", static_cast<unsigned long long>(e->size()),
                  isoDate(e->date()).c_str(), e->path().c_str());
    }
  }
  std::cout.flush();
  return listed ? 0 : reportFailure(*archive, "list");
}

int runExtract(const ArchiveOptions& opts) {
  int code = 0;
  auto archive = openReader(opts, code);
  if (!archive) return code;
  if (!archive->listFiles()) return reportFailure(*archive, "extract");
  const ZipEntry* entry = nullptr;
  if (!opts.entry.empty()) {
    auto found = archive->rootEntry()->findPath(opts.entry);
    if (!found) {
      std::cerr << "harbor: archive extract: no entry " << opts.entry << "\n";
      return 1;
    }
    entry = found.get();
  }
  std::string destination = opts.destination;
  if (destination.empty()) {
    const std::string stem = FileUtil::getFileNameNoExtension(FileUtil::getFileName(opts.file));
    destination = FileUtil::getCreateFolderName(fs::current_path().string(), stem);
  }
  destination = fs::absolute(destination).lexically_normal().string();
  FileUtil::createFolder(destination);
  TerminalProgress progress(entry ? entry->size() : archive->rootEntry()->totalSize());
  archive->setActionDelegate(&progress);
  const bool ok = archive->unArchivePath(entry, destination);
  archive->setActionDelegate(nullptr);
  const auto& refused = archive->refusedEntries();
  for (const auto& r : refused)
    std::cerr << "harbor: archive extract: refused " << r.path << ": " << r.reason << "\n";
  if (!ok) return reportFailure(*archive, "extract");
  std::cout << destination << "\n";
  if (!refused.empty()) {
    std::cerr << "harbor: archive extract: " << refused.size()
              << (refused.size() == 1 ? " entry was" : " entries were")
              << " not extracted; everything else was\n";
    return 1;
  }
  return 0;
}

int runCreate(const ArchiveOptions& opts) {
  std::vector<std::string> sources;
  for (const auto& p : opts.paths) {
    std::error_code ec;
    if (!fs::exists(fs::symlink_status(p, ec))) {
      std::cerr << "harbor: archive create: no such file or folder: " << p << "\n";
      return 1;
    }
    sources.push_back(fs::absolute(p).lexically_normal().string());
  }
  const std::string ext = toLower(FileUtil::getFileExtension(opts.file));
  if (ext != "zip" && ext != "7z") {
    std::cerr << "harbor: archive create: only .zip and .7z archives are written\n";
    return 2;
  }
  TerminalProgress progress(FileUtil::getFileSizeFiles(sources));
  ZipPropertyOptions options;
  options.password = opts.password;
  auto writer = ArchiveFactory::createZipFactory(sources, &progress, opts.file, options);
  if (auto* sevenZip = dynamic_cast<U7zZip*>(writer.get())) {
    // The archive is written by the time the factory returns.
    if (!sevenZip->isOpen() || sevenZip->error()) {
      const auto& error = sevenZip->error();
      std::cerr << "harbor: archive create: cannot create " << opts.file << ": "
                << (error ? error->message : std::string("failed")) << "\n";
      return 1;
    }
    for (const auto& msg : writer->zipMsg()) std::cerr << "harbor: archive create: " << msg << "\n";
    return writer->zipMsg().empty() ? 0 : 1;
  }
  auto* zip = dynamic_cast<UZipFileArchive*>(writer.get());
  if (!zip || !zip->isOpen()) {
    std::cerr << "harbor: archive create: cannot create " << opts.file << "\n";
    return 1;
  }
  const bool closed = zip->close();
  for (const auto& msg : writer->zipMsg()) std::cerr << "harbor: archive create: " << msg << "\n";
  if (!closed) {
    std::cerr << "harbor: archive create: cannot finish " << opts.file << "\n";
    return 1;
  }
  return writer->zipMsg().empty() ? 0 : 1;
}

void addArchiveCommands(CLI::App& app, int& exitCode) {
  CLI::App* archive = app.add_subcommand("archive", "List, extract and create archives");
  archive->require_subcommand(1);

  auto list = std::make_shared<ArchiveOptions>();
  CLI::App* listCmd = archive->add_subcommand("list", "List the entries of an archive");
  listCmd->add_option("FILE", list->file, "zip, 7z, tar, gz, bz2 or rar archive")->required();
  listCmd->add_option("--password", list->password, "Password of an encrypted archive");
  listCmd->add_flag("--json", list->json, "Print JSON");
  listCmd->callback([list, &exitCode] { exitCode = runList(*list); });

  auto extract = std::make_shared<ArchiveOptions>();
  CLI::App* extractCmd = archive->add_subcommand("extract", "Extract an archive or one entry");
  extractCmd->add_option("FILE", extract->file, "Archive")->required();
  extractCmd->add_option("DEST", extract->destination,
                         "Destination folder (default: a new folder named after the archive)");
  extractCmd->add_option("--entry", extract->entry, "Only this entry (a file or folder path)");
  extractCmd->add_option("--password", extract->password, "Password of an encrypted archive");
  extractCmd->footer(
      "Exit status: 0 when everything was extracted; 1 on failure, or when entries that would "
      "land outside DEST were refused (the rest is extracted); 2 for a wrong or missing password.");
  extractCmd->callback([extract, &exitCode] { exitCode = runExtract(*extract); });

  auto create = std::make_shared<ArchiveOptions>();
  CLI::App* createCmd = archive->add_subcommand("create", "Create a zip or 7z archive");
  createCmd->add_option("OUT", create->file, "The .zip or .7z to write")->required();
  createCmd->add_option("PATH", create->paths, "Files or folders to add")->required();
  createCmd->add_option("--password", create->password, "Encrypt the entries with a password");
  createCmd->callback([create, &exitCode] { exitCode = runCreate(*create); });
}

}  // namespace

const CommandRegistrar archiveCommands(50, addArchiveCommands);

}  // namespace harbor::cli
