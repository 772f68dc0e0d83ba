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
#include "cli/Output.h"
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
  PasswordSource password;
  std::vector<std::string> paths;
  std::string encryption;
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
int reportFailure(const IArchive& archive, const std::string& command) {
  const auto error = archive.archiveError();
  const std::string message = error && !error->message.empty() ? error->message : "failed";
  if (archive.isPasswordFailure()) {
    return fail(command, message + " (wrong or missing password)", 2);
  }
  return fail(command, message);
}

// The reader for the archive, or nothing with `exitCode` set and the reason
// printed. Without a password, an encrypted archive asks for one on a
// terminal and is opened again.
std::unique_ptr<IArchive> openReader(const ArchiveOptions& opts, const std::string& command,
                                     int& exitCode, bool& listed) {
  if (auto problem = checkPath(opts.file, PathNeed::File)) {
    exitCode = fail(command, *problem);
    return nullptr;
  }
  std::string error;
  std::optional<std::string> password = opts.password.resolve(error);
  if (!error.empty()) {
    exitCode = fail(command, error, 2);
    return nullptr;
  }
  auto archive = ArchiveFactory::createReader(opts.file, password.value_or(""));
  if (!archive) {
    exitCode = fail(command, opts.file + ": not an archive format Harbor reads");
    return nullptr;
  }
  listed = archive->listFiles();
  if (!listed && archive->isPasswordFailure() && !password) {
    if (auto asked = promptPassword("Password for " + opts.file + ": ")) {
      archive = ArchiveFactory::createReader(opts.file, *asked);
      listed = archive && archive->listFiles();
      if (!archive) {
        exitCode = fail(command, opts.file + ": not an archive format Harbor reads");
        return nullptr;
      }
    }
  }
  return archive;
}

int runList(const ArchiveOptions& opts) {
  const std::string command = "archive list";
  int code = 0;
  bool listed = false;
  auto archive = openReader(opts, command, code, listed);
  if (!archive) return code;
  std::vector<const ZipEntry*> entries;
  collect(*archive->rootEntry(), entries);
  // A list that stopped keeps what it had: shown, then the failure. A script
  // reads "encrypted" and "encryptedFileName" even when a missing password
  // stopped it at once.
  if (!listed && entries.empty() &&
      !(opts.json && (archive->isPasswordFailure() || archive->isEncryptedFileName())))
    return reportFailure(*archive, command);
  const bool encrypted = archive->isEncrypted();
  if (opts.json) {
    ordered_json list = ordered_json::array();
    for (const auto* e : entries) {
      const std::string date = isoDate(e->date());
      list.push_back({{"path", e->path()},
                      {"isLeaf", e->isLeaf()},
                      {"size", e->size()},
                      {"packedSize", e->isLeaf() ? e->compressedSize() : e->compressTotalSize()},
                      {"crc", e->crc()},
                      {"date", date.empty() ? ordered_json(nullptr) : ordered_json(date)}});
    }
    printJson(ordered_json{{"format", archive->formatName()},
                           {"encrypted", encrypted},
                           {"encryptedFileName", archive->isEncryptedFileName()},
                           {"entries", std::move(list)}});
  } else {
    std::printf("Format: %s\n", archive->formatName().c_str());
    for (const auto* e : entries) {
      std::printf("%12llu  %-20s  %s\n", static_cast<unsigned long long>(e->size()),
                  isoDate(e->date()).c_str(), e->path().c_str());
    }
  }
  std::cout.flush();
  return listed ? 0 : reportFailure(*archive, command);
}

int runExtract(const ArchiveOptions& opts) {
  const std::string command = "archive extract";
  int code = 0;
  bool listed = false;
  auto archive = openReader(opts, command, code, listed);
  if (!archive) return code;
  if (!listed) return reportFailure(*archive, command);
  const ZipEntry* entry = nullptr;
  if (!opts.entry.empty()) {
    auto found = archive->rootEntry()->findPath(opts.entry);
    if (!found) return fail(command, "no entry " + opts.entry + " in " + opts.file);
    entry = found.get();
  }
  if (!opts.destination.empty()) {
    std::error_code ec;
    if (fs::exists(opts.destination, ec)) {
      if (auto problem = checkPath(opts.destination, PathNeed::Folder))
        return fail(command, *problem);
    }
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
  for (const auto& r : refused) warn(command, "refused " + r.path + ": " + r.reason);
  if (!ok) return reportFailure(*archive, command);
  if (opts.json) {
    ordered_json list = ordered_json::array();
    for (const auto& r : refused) list.push_back({{"path", r.path}, {"reason", r.reason}});
    printJson(ordered_json{{"format", archive->formatName()},
                           {"destination", destination},
                           {"refused", std::move(list)}});
  } else {
    std::cout << destination << "\n";
  }
  if (!refused.empty()) {
    warn(command, std::to_string(refused.size()) +
                      (refused.size() == 1 ? " entry was" : " entries were") +
                      " not extracted; everything else was");
    return 1;
  }
  return 0;
}

int runCreate(const ArchiveOptions& opts) {
  const std::string command = "archive create";
  std::vector<std::string> sources;
  for (const auto& p : opts.paths) {
    std::error_code ec;
    if (!fs::exists(fs::symlink_status(p, ec))) {
      return fail(command, p + ": " + pathProblem(p, PathNeed::Exists).value_or("cannot read"));
    }
    sources.push_back(fs::absolute(p).lexically_normal().string());
  }
  const std::string ext = toLower(FileUtil::getFileExtension(opts.file));
  if (ext != "zip" && ext != "7z") {
    return fail(command, opts.file + ": only .zip and .7z archives are written", 2);
  }
  std::string passwordError;
  const std::optional<std::string> password = opts.password.resolve(passwordError);
  if (!passwordError.empty()) return fail(command, passwordError, 2);
  if (password && opts.password.password.empty() && opts.password.file.empty())
    warn(command, "encrypting with the password from HARBOR_PASSWORD");
  ZipPropertyOptions options;
  if (!opts.encryption.empty()) {
    if (!password) return fail(command, "--encryption needs a password", 2);
    // A 7z archive is always enciphered with AES-256.
    if (ext == "7z" && opts.encryption != "aes256")
      return fail(command, "a .7z archive is encrypted with aes256 only", 2);
    if (opts.encryption == "aes256") options.encryption = ZipEncryption::aes256;
  }
  TerminalProgress progress(FileUtil::getFileSizeFiles(sources));
  options.password = password.value_or("");
  auto writer = ArchiveFactory::createZipFactory(sources, &progress, opts.file, options);
  if (auto* sevenZip = dynamic_cast<U7zZip*>(writer.get())) {
    // The archive is written by the time the factory returns.
    if (!sevenZip->isOpen() || sevenZip->error()) {
      const auto& error = sevenZip->error();
      return fail(command, "cannot create " + opts.file + ": " +
                               (error ? error->message : std::string("failed")));
    }
    for (const auto& msg : writer->zipMsg()) warn(command, msg);
    return writer->zipMsg().empty() ? 0 : 1;
  }
  auto* zip = dynamic_cast<UZipFileArchive*>(writer.get());
  if (!zip || !zip->isOpen()) return fail(command, "cannot create " + opts.file);
  const bool complete = zip->close();
  for (const auto& msg : writer->zipMsg()) warn(command, msg);
  if (!complete) return fail(command, opts.file + " was not written");
  return 0;
}

void addArchiveCommands(CLI::App& app, int& exitCode) {
  CLI::App* archive = app.add_subcommand("archive", "List, extract and create archives");
  archive->require_subcommand(1);

  auto list = std::make_shared<ArchiveOptions>();
  CLI::App* listCmd = archive->add_subcommand("list", "List the entries of an archive");
  listCmd->add_option("FILE", list->file, "zip, 7z, tar, gz, bz2 or rar archive")->required();
  list->password.addOptions(listCmd, "Password of an encrypted archive");
  addJsonFlag(listCmd, list->json,
              "Print {format, encrypted, encryptedFileName, entries}; printed also when a "
              "password is missing or wrong (exit 2)");
  listCmd->callback([list, &exitCode] { exitCode = runList(*list); });

  auto extract = std::make_shared<ArchiveOptions>();
  CLI::App* extractCmd = archive->add_subcommand("extract", "Extract an archive or one entry");
  extractCmd->add_option("FILE", extract->file, "Archive")->required();
  extractCmd->add_option("DEST", extract->destination,
                         "Destination folder (default: a new folder named after the archive)");
  extractCmd->add_option("--entry", extract->entry, "Only this entry (a file or folder path)");
  addJsonFlag(extractCmd, extract->json, "Print {format, destination, refused}");
  extractCmd->footer(
      "Exit status: 0 when everything was extracted; 1 on failure, or when entries that would "
      "land outside DEST were refused (the rest is extracted); 2 for a wrong or missing password.");
  extract->password.addOptions(extractCmd, "Password of an encrypted archive");
  extractCmd->callback([extract, &exitCode] { exitCode = runExtract(*extract); });

  auto create = std::make_shared<ArchiveOptions>();
  CLI::App* createCmd = archive->add_subcommand("create", "Create a zip or 7z archive");
  createCmd->add_option("OUT", create->file, "The .zip or .7z to write")->required();
  createCmd->add_option("PATH", create->paths, "Files or folders to add")->required();
  create->password.addOptions(createCmd, "Encrypt the entries with a password");
  createCmd
      ->add_option("--encryption", create->encryption,
                   "Cipher for a password-protected zip: zipcrypto (the default, read by every "
                   "unzip) or aes256 (authenticated AES-256)")
      ->check(CLI::IsMember({"zipcrypto", "aes256"}));
  createCmd->callback([create, &exitCode] { exitCode = runCreate(*create); });
}

}  // namespace

const CommandRegistrar archiveCommands(50, addArchiveCommands);

}  // namespace harbor::cli
