#include "archive/rar/URarArchive.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <vector>

#include "filemanager/FileUtil.h"
#include "platform/Paths.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

struct ReaderCloser {
  void operator()(struct archive* a) const { archive_read_free(a); }
};
using Reader = std::unique_ptr<struct archive, ReaderCloser>;

std::string normalised(std::string name) {
  for (char& c : name)
    if (c == '\\') c = '/';
  return name;
}

Error encryptedError(const std::string& what) {
  return {kArchiveErrorDomain, kArchiveErrorArchive,
          "This RAR archive is encrypted (" + what + "); encrypted RAR archives cannot be read"};
}

}  // namespace

bool URarArchive::isRarPart(const std::string& path) {
  const std::string stem = FileUtil::getFileNameNoExtension(FileUtil::getFileName(path));
  return toLower(FileUtil::getFileExtension(stem)).starts_with("part");
}

bool URarArchive::listFiles() {
  rootEntry_->clear();
  return walk(nullptr, nullptr);
}

bool URarArchive::isEncrypted() {
  if (!isCheckContainsPassword_) {
    auto saved = error_;
    walk(nullptr, nullptr);
    error_ = saved;
  }
  return isContainsPassword_;
}

bool URarArchive::unArchivePath(const ZipEntry* entry, const std::string& destination) {
  refused_.clear();
  return walk(entry && !entry->isRootEntry() ? entry : nullptr, &destination);
}

bool URarArchive::walk(const ZipEntry* selected, const std::string* destination) {
  error_.reset();
  Reader reader(archive_read_new());
  archive_read_support_format_rar(reader.get());
  archive_read_support_format_rar5(reader.get());
  if (!password_.empty()) archive_read_add_passphrase(reader.get(), password_.c_str());
  if (archive_read_open_filename(reader.get(), filePath_.c_str(), 64 * 1024) != ARCHIVE_OK) {
    setError(errorFailedOpenFile());
    return false;
  }
  const bool listing = destination == nullptr;
  const std::string base = selected ? selected->leadingPath() : "";
  const std::string prefix = selected ? selected->path() : "";
  struct archive_entry* e = nullptr;
  for (;;) {
    if (checkCancelled()) return false;
    int rc = archive_read_next_header(reader.get(), &e);
    if (rc == ARCHIVE_EOF) break;
    if (rc < ARCHIVE_WARN) {
      const std::string msg =
          archive_error_string(reader.get()) ? archive_error_string(reader.get()) : "";
      isCheckContainsPassword_ = true;
      if (msg.find("ncrypt") != std::string::npos) {
        isContainsPassword_ = true;
        isEncryptedFileName_ = true;
        passwordFailure_ = true;
        setError(encryptedError("names and data"));
      } else {
        setError({kArchiveErrorDomain, kArchiveErrorArchive, "Archive issues: " + msg});
      }
      return false;
    }
    const char* utf8 = archive_entry_pathname_utf8(e);
    const char* raw = archive_entry_pathname(e);
    std::string name = utf8 ? utf8 : raw ? charToString(raw, std::strlen(raw)) : "";
    name = normalised(name);
    const bool encrypted = archive_entry_is_encrypted(e);
    if (encrypted) isContainsPassword_ = true;
    const bool isDir = archive_entry_filetype(e) == AE_IFDIR;
    if (isDir && !name.empty() && name.back() != '/') name += '/';
    if (name.empty() || isIgnore(name)) continue;
    const auto date =
        archive_entry_mtime_is_set(e)
            ? dateAfter(dateFor1970(), static_cast<std::int64_t>(archive_entry_mtime(e)))
            : std::nullopt;
    const char* link = archive_entry_symlink(e);
    if (listing) {
      const auto size = static_cast<std::uint64_t>(std::max<la_int64_t>(0, archive_entry_size(e)));
      rootEntry_->addToRootEntry(std::make_shared<ZipEntry>(
          name, FilePos{}, 0, size, size, 0, link ? std::optional<std::string>(link) : std::nullopt,
          date, !isDir));
      continue;
    }
    if (selected && !(name == prefix || (!selected->isLeaf() && isPathAtOrBelow(name, prefix))))
      continue;
    const std::string relative = name.substr(std::min(base.size(), name.size()));
    auto target = safeTarget(*destination, relative);
    if (!target) continue;
    if (isDir) {
      FileUtil::createFolder(*target);
      continue;
    }
    if (link) {
      if (!makeLink(*destination, *target, link, name)) return false;
      continue;
    }
    if (encrypted) {
      passwordFailure_ = true;
      setError(encryptedError("data of " + name));
      return false;
    }
    bool readFailed = false;
    bool ok = writeFileAtomically(*target, [&](const Sink& sink) {
      std::vector<char> buf(64 * 1024);
      for (;;) {
        if (checkCancelled()) return false;
        la_ssize_t n = archive_read_data(reader.get(), buf.data(), buf.size());
        if (n < 0) {
          readFailed = true;
          return false;
        }
        if (n == 0) return true;
        if (!sink(buf.data(), static_cast<std::size_t>(n))) return false;
        addProgress(static_cast<std::uint64_t>(n));
      }
    });
    if (!ok) {
      if (readFailed) {
        const char* msg = archive_error_string(reader.get());
        setError({kArchiveErrorDomain, kArchiveErrorArchive,
                  std::string("Archive issues: ") + (msg ? msg : "damaged data")});
      }
      return false;
    }
    applyAttributes(*target, static_cast<unsigned>(archive_entry_perm(e)), date);
  }
  isCheckContainsPassword_ = true;
  return true;
}

}  // namespace harbor
