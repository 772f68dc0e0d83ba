#include "archive/7z/Archive7zReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <new>

#include "archive/7z/SevenZipCoders.h"
#include "archive/ArchiveBase.h"
#include "archive/ArchiveError.h"
#include "archive/SafeExtraction.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"

namespace harbor {
using namespace sevenzip;
namespace {

// Headers, encoded or not, are never expanded beyond this.
constexpr std::uint64_t kMaxHeaderSize = 256ull << 20;
constexpr std::size_t kBlock = 1 << 16;
// Link targets longer than this are cut.
constexpr std::size_t kMaxLinkTarget = 4096;

std::optional<Archive7zItem::Date> fileTimeToDate(std::uint64_t ft) {
  // FILETIME counts 100 ns from 1601; 11644473600 s lie between it and 1970.
  const auto seconds = static_cast<std::int64_t>(ft / 10000000ull) - 11644473600ll;
  return ArchiveBase::dateAfter(ArchiveBase::dateFor1970(), seconds);
}

bool readAll(int fd, std::uint64_t offset, std::uint8_t* buf, std::size_t n) {
  while (n > 0) {
    const ssize_t got = ::pread(fd, buf, n, static_cast<off_t>(offset));
    if (got <= 0) return false;
    buf += got;
    n -= static_cast<std::size_t>(got);
    offset += static_cast<std::uint64_t>(got);
  }
  return true;
}

}  // namespace

Archive7zItem::Archive7zItem(const std::string& path, std::uint32_t flags) : flags_(flags) {
  std::string p = path;
  if (!p.empty() && p.back() == '/') {
    flags_ |= kDirectory;
    p.pop_back();
  }
  flags_ &= ~(kHasStream | kHasCrc);
  const auto slash = p.rfind('/');
  if (slash == std::string::npos) {
    fileName_ = p;
  } else {
    directoryPath_ = p.substr(0, slash);
    fileName_ = p.substr(slash + 1);
  }
}

std::string Archive7zItem::path() const {
  std::string p = directoryPath_ ? *directoryPath_ + "/" + fileName_ : fileName_;
  if (isDirectory()) p += "/";
  return p;
}

Archive7zReader::Archive7zReader(std::string path) : path_(std::move(path)) {}

Archive7zReader::~Archive7zReader() {
  if (fd_ >= 0) ::close(fd_);
}

bool Archive7zReader::fail(long code, const std::string& message, bool password) {
  lastError_ = Error{kArchiveErrorDomain, code, message};
  passwordFailure_ = password;
  return false;
}

bool Archive7zReader::open(std::optional<Error>* error) {
  lastError_.reset();
  passwordFailure_ = false;
  items_.clear();
  db_ = Database{};
  if (fd_ >= 0) ::close(fd_);
  fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  bool ok = false;
  try {
    ok = fd_ >= 0 ? readHeaders() : fail(4, "Cannot open " + path_);
  } catch (const std::bad_alloc&) {
    items_.clear();
    db_ = Database{};
    ok = fail(4, "The archive's headers are too large");
  }
  if (!ok && error) *error = lastError_;
  if (!ok) HB_LOG("Archive7zReader", "open " + path_ + ": " + lastError_->message);
  return ok;
}

bool Archive7zReader::readHeaders() {
  struct stat st {};
  if (::fstat(fd_, &st) != 0) return fail(4, "Cannot read " + path_);
  const auto fileSize = static_cast<std::uint64_t>(st.st_size);
  std::uint8_t start[kStartHeaderSize];
  if (fileSize < kStartHeaderSize || !readAll(fd_, 0, start, sizeof start))
    return fail(4, "Not a 7z archive");
  std::string why;
  auto sh = parseStartHeader(start, sizeof start, why);
  if (!sh) return fail(4, why);
  if (sh->nextHeaderSize == 0) return true;  // an empty archive
  const std::uint64_t room = fileSize - kStartHeaderSize;
  if (sh->nextHeaderOffset > room || sh->nextHeaderSize > room - sh->nextHeaderOffset ||
      sh->nextHeaderSize > kMaxHeaderSize)
    return fail(4, "Header lies beyond the end of the archive");
  std::vector<std::uint8_t> header(static_cast<std::size_t>(sh->nextHeaderSize));
  if (!readAll(fd_, kStartHeaderSize + sh->nextHeaderOffset, header.data(), header.size()))
    return fail(4, "Cannot read the header");
  if (crc32(header.data(), header.size()) != sh->nextHeaderCrc)
    return fail(4, "Header CRC mismatch");

  for (int depth = 0;; ++depth) {
    StreamsInfo encoded;
    bool isEncoded = false;
    if (!parseHeader(header.data(), header.size(), db_, encoded, isEncoded, why))
      return fail(4, "Damaged header: " + why);
    if (!isEncoded) break;
    if (depth >= 4) return fail(4, "Header encoded too many times");
    const Folder& folder = encoded.folders[0];
    const bool aes = folder.usesMethod(kAes);
    const std::uint64_t size = folder.unpackSize();
    if (size > kMaxHeaderSize) return fail(4, "Encoded header is too large");
    DecodeError derr;
    auto stream = openFolder(fd_, folder, packStreamOffsets(encoded), encoded.packSizes,
                             passwordGetter_, derr);
    std::vector<std::uint8_t> plain;
    bool ok = stream != nullptr;
    if (ok) {
      // Grown as data arrives: the declared size is only a ceiling.
      std::vector<std::uint8_t> block(kBlock);
      while (ok && plain.size() < size) {
        const auto want =
            static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), size - plain.size()));
        const auto n = stream->read(block.data(), want);
        if (n <= 0) {
          ok = false;
        } else {
          plain.insert(plain.end(), block.begin(), block.begin() + n);
        }
      }
      if (ok && folder.crc && crc32(plain.data(), plain.size()) != *folder.crc) {
        ok = false;
        derr.set(DecodeFailure::damaged, "Header CRC mismatch");
      }
    }
    if (!ok) {
      if (aes && (derr.kind == DecodeFailure::password || derr.kind == DecodeFailure::damaged)) {
        return fail(1,
                    password().empty() ? "The file names are encrypted; a password is needed"
                                       : "Wrong password for the encrypted file names",
                    true);
      }
      return fail(4, derr.message.empty() ? "Cannot decode the header" : derr.message);
    }
    header = std::move(plain);
  }
  packOffsets_ = packStreamOffsets(db_.streams);

  const std::string stem = FileUtil::getFileNameNoExtension(FileUtil::getFileName(path_));
  for (std::size_t i = 0; i < db_.files.size(); ++i) {
    const FileRecord& f = db_.files[i];
    auto item = std::make_shared<Archive7zItem>();
    std::string name = f.name;
    std::replace(name.begin(), name.end(), '\\', '/');
    while (!name.empty() && name.back() == '/') name.pop_back();
    if (name.empty()) name = stem;  // a stream archived without a name
    const auto slash = name.rfind('/');
    if (slash == std::string::npos) {
      item->fileName_ = name;
    } else {
      item->directoryPath_ = name.substr(0, slash);
      item->fileName_ = name.substr(slash + 1);
    }
    item->index_ = static_cast<std::int64_t>(i);
    item->originalSize_ = f.size;
    if (f.crc) {
      item->crc_ = *f.crc;
      item->flags_ |= Archive7zItem::kHasCrc;
    }
    if (f.isDir) item->flags_ |= Archive7zItem::kDirectory;
    if (f.isAnti) item->flags_ |= Archive7zItem::kAnti;
    if (f.hasStream) {
      item->flags_ |= Archive7zItem::kHasStream;
      const Folder& folder = db_.streams.folders[static_cast<std::size_t>(f.folder)];
      if (folder.usesMethod(kAes)) item->flags_ |= Archive7zItem::kEncrypted;
      // In a solid folder the packed size belongs to its first file.
      if (f.offsetInFolder == 0 && folder.firstPackStream < db_.streams.packSizes.size())
        item->packedSize_ = db_.streams.packSizes[folder.firstPackStream];
    }
    if (f.attributes && (*f.attributes & 0x8000)) item->mode_ = *f.attributes >> 16;
    if (f.mtime) item->modificationDate_ = fileTimeToDate(*f.mtime);
    items_.push_back(std::move(item));
  }
  return true;
}

void Archive7zReader::iterateWithHandler(const std::function<bool(const ItemPtr&)>& handler) const {
  for (const auto& item : items_)
    if (!handler(item)) break;
}

bool Archive7zReader::extract(const std::vector<ItemPtr>& items, const std::string& path,
                              bool withFullPaths) {
  std::vector<std::pair<ItemPtr, std::string>> targets;
  for (const auto& item : items) {
    if (!item) continue;
    std::string rel = withFullPaths ? item->path() : item->fileName();
    if (!withFullPaths && item->isDirectory()) rel += "/";
    targets.emplace_back(item, rel);
  }
  return extractTo(targets, path);
}

void Archive7zReader::progress(std::uint64_t bytes) {
  progressDone_ += bytes;
  if (!delegate_ || progressTotal_ == 0) return;
  // About a hundred reports per extraction at most.
  if (progressDone_ - progressReported_ < progressTotal_ / 100 && progressDone_ != progressTotal_)
    return;
  progressReported_ = progressDone_;
  delegate_->onArchive7zReaderExtractProgress(
      *this, static_cast<float>(double(progressDone_) / double(progressTotal_)));
}

bool Archive7zReader::skip(InStream* stream, std::uint64_t bytes) {
  std::vector<std::uint8_t> buf(kBlock);
  while (bytes > 0) {
    if (isCurrentThreadCancelled()) return fail(100, "The operation is canceled");
    const auto n = stream->read(
        buf.data(), static_cast<std::size_t>(std::min<std::uint64_t>(bytes, buf.size())));
    if (n <= 0) return false;
    bytes -= static_cast<std::uint64_t>(n);
  }
  return true;
}

bool Archive7zReader::writeEntry(const FileRecord& file, InStream* stream,
                                 const std::string& destination, const std::string& target,
                                 const std::string& relative, bool encrypted) {
  const unsigned mode =
      (file.attributes && (*file.attributes & 0x8000)) ? *file.attributes >> 16 : 0;
  std::uint32_t crc = 0;
  bool streamFailed = false;
  bool crcFailed = false;
  if ((mode & S_IFMT) == S_IFLNK) {
    // A link's data is its target.
    std::string linkTarget;
    std::vector<std::uint8_t> buf(kBlock);
    std::uint64_t left = file.size;
    while (left > 0) {
      const auto n =
          stream ? stream->read(buf.data(),
                                static_cast<std::size_t>(std::min<std::uint64_t>(left, buf.size())))
                 : 0;
      if (n <= 0) {
        streamFailed = true;
        break;
      }
      crc = crc32(buf.data(), static_cast<std::size_t>(n), crc);
      if (linkTarget.size() < kMaxLinkTarget)
        linkTarget.append(
            reinterpret_cast<const char*>(buf.data()),
            std::min<std::size_t>(static_cast<std::size_t>(n), kMaxLinkTarget - linkTarget.size()));
      left -= static_cast<std::uint64_t>(n);
    }
    if (!streamFailed && file.crc && crc != *file.crc) crcFailed = true;
    if (!streamFailed && !crcFailed) {
      progress(file.size);
      if (!extraction::linkStaysInside(destination, target, linkTarget)) {
        refused_.push_back({relative, "link points outside the destination"});
        return true;
      }
      if (extraction::replaceWithLink(target, linkTarget)) return true;
      return fail(5, "Failed to create file " + FileUtil::getFileName(target));
    }
  } else {
    bool cancelled = false;
    const auto result = extraction::writeFileAtomically(target, [&](const extraction::Sink& sink) {
      std::vector<std::uint8_t> buf(kBlock);
      std::uint64_t left = file.size;
      while (left > 0) {
        if (isCurrentThreadCancelled()) {
          cancelled = true;
          return false;
        }
        const auto n = stream->read(
            buf.data(), static_cast<std::size_t>(std::min<std::uint64_t>(left, buf.size())));
        if (n <= 0) {
          streamFailed = true;
          return false;
        }
        crc = crc32(buf.data(), static_cast<std::size_t>(n), crc);
        if (!sink(reinterpret_cast<const char*>(buf.data()), static_cast<std::size_t>(n)))
          return false;
        left -= static_cast<std::uint64_t>(n);
        progress(static_cast<std::uint64_t>(n));
      }
      if (file.crc && crc != *file.crc) {
        crcFailed = true;
        return false;
      }
      return true;
    });
    if (cancelled) return fail(100, "The operation is canceled");
    if (result == extraction::WriteResult::written) {
      if (mode & 0777) FileUtil::setFilePermission(target, mode & 0777);
      if (restoreDates_ && file.mtime)
        if (auto date = fileTimeToDate(*file.mtime)) FileUtil::setFileModifiedDate(*date, target);
      return true;
    }
    if (!streamFailed && !crcFailed)
      return fail(5, "Failed to create file " + FileUtil::getFileName(target));
  }
  if (encrypted) return fail(4, "Wrong password for " + relative, true);
  return fail(4, (crcFailed ? "CRC mismatch in " : "Damaged data in ") + relative);
}

bool Archive7zReader::extractTo(const std::vector<std::pair<ItemPtr, std::string>>& items,
                                const std::string& destination) {
  try {
    return extractItems(items, destination);
  } catch (const std::bad_alloc&) {
    return fail(4, "Not enough memory to extract");
  }
}

bool Archive7zReader::extractItems(const std::vector<std::pair<ItemPtr, std::string>>& items,
                                   const std::string& destination) {
  lastError_.reset();
  passwordFailure_ = false;
  refused_.clear();
  progressDone_ = progressReported_ = progressTotal_ = 0;

  // What goes where: folders and empty files at once, data folder by folder.
  std::map<std::size_t, std::vector<std::pair<std::size_t, std::string>>> byFolder;
  std::vector<std::pair<std::size_t, std::string>> emptyFiles;
  for (const auto& [item, rel] : items) {
    if (!item) continue;
    if (item->index() < 0 || static_cast<std::size_t>(item->index()) >= db_.files.size()) {
      if (item->isDirectory()) {
        std::string reason;
        if (auto target = extraction::safeTarget(destination, rel, reason))
          FileUtil::createFolder(*target);
        else
          refused_.push_back({rel, reason});
      }
      continue;
    }
    const auto index = static_cast<std::size_t>(item->index());
    const FileRecord& f = db_.files[index];
    if (f.isAnti) continue;
    std::string reason;
    auto target = extraction::safeTarget(destination, rel, reason);
    if (!target) {
      refused_.push_back({rel, reason});
      HB_LOG("Archive7zReader", "refused " + rel + ": " + reason);
      continue;
    }
    if (f.isDir) {
      FileUtil::createFolder(*target);
      if (restoreDates_ && f.mtime)
        if (auto date = fileTimeToDate(*f.mtime)) FileUtil::setFileModifiedDate(*date, *target);
      continue;
    }
    if (!f.hasStream) {
      // Written after the data, so a wrong password leaves no file at all.
      emptyFiles.emplace_back(index, rel);
      continue;
    }
    progressTotal_ += f.size;
    byFolder[static_cast<std::size_t>(f.folder)].emplace_back(index, rel);
  }

  for (auto& [folderIndex, wanted] : byFolder) {
    if (isCurrentThreadCancelled()) return fail(100, "The operation is canceled");
    const Folder& folder = db_.streams.folders[folderIndex];
    const bool encrypted = folder.usesMethod(kAes);
    DecodeError derr;
    auto stream =
        openFolder(fd_, folder, packOffsets_, db_.streams.packSizes, passwordGetter_, derr);
    if (!stream) {
      if (derr.kind == DecodeFailure::password)
        return fail(4, "A password is needed for " + wanted.front().second, true);
      if (derr.kind == DecodeFailure::damaged && encrypted)
        return fail(4, "Wrong password for " + wanted.front().second, true);
      return fail(4, derr.message + " (" + wanted.front().second + ")");
    }
    std::sort(wanted.begin(), wanted.end(), [&](const auto& a, const auto& b) {
      return db_.files[a.first].offsetInFolder < db_.files[b.first].offsetInFolder;
    });
    std::uint64_t position = 0;
    for (const auto& [index, rel] : wanted) {
      const FileRecord& f = db_.files[index];
      if (f.offsetInFolder < position) continue;  // the same data asked twice
      if (!skip(stream.get(), f.offsetInFolder - position)) {
        if (lastError_) return false;
        if (encrypted) return fail(4, "Wrong password for " + rel, true);
        return fail(4, derr.message.empty() ? "Damaged data before " + rel : derr.message);
      }
      std::string reason;
      auto target = extraction::safeTarget(destination, rel, reason);
      if (!target) {
        refused_.push_back({rel, reason});
        if (!skip(stream.get(), f.size)) return fail(4, "Damaged data in " + rel);
      } else if (!writeEntry(f, stream.get(), destination, *target, rel, encrypted)) {
        if (!derr.message.empty() && !passwordFailure_ && lastError_ && lastError_->code == 4)
          lastError_->message = derr.message + " (" + rel + ")";
        return false;
      }
      position = f.offsetInFolder + f.size;
    }
  }
  for (const auto& [index, rel] : emptyFiles) {
    std::string reason;
    auto target = extraction::safeTarget(destination, rel, reason);
    if (!target) {
      refused_.push_back({rel, reason});
      continue;
    }
    if (!writeEntry(db_.files[index], nullptr, destination, *target, rel, false)) return false;
  }
  return true;
}

}  // namespace harbor
