#include "archive/gzip/SingleStreamArchive.h"

#include <bzlib.h>
#include <zlib.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Unicode.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {
constexpr std::size_t kBlock = 64 * 1024;
}

SingleStreamArchive::~SingleStreamArchive() {
  removeTempFile();
}

std::optional<Error> SingleStreamArchive::archiveError() const {
  if (error_) return error_;
  return tarManager_ ? tarManager_->archiveError() : std::nullopt;
}

const std::vector<RefusedEntry>& SingleStreamArchive::refusedEntries() const {
  return tarManager_ ? tarManager_->refusedEntries() : refused_;
}

void SingleStreamArchive::setActionDelegate(IActionProgress* delegate) {
  ArchiveBase::setActionDelegate(delegate);
  if (tarManager_) tarManager_->setActionDelegate(delegate);
}

void SingleStreamArchive::setFileEncoding(std::uint64_t encoding) {
  ArchiveBase::setFileEncoding(encoding);
  if (tarManager_) tarManager_->setFileEncoding(encoding);
}

bool SingleStreamArchive::isTar() const {
  return toLower(FileUtil::getFileExtension(tempFile_)) == "tar";
}

void SingleStreamArchive::removeTempFile() {
  if (!tempFolder_.empty()) {
    std::error_code ec;
    fs::remove_all(tempFolder_, ec);
  }
  tempFolder_.clear();
  tempFile_.clear();
}

bool SingleStreamArchive::generateTempFile() {
  if (!tempFile_.empty() && fs::exists(tempFile_)) return true;
  removeTempFile();
  std::string name = FileUtil::getFileNameNoExtension(FileUtil::getFileName(filePath_));
  if (isTarAlias(toLower(FileUtil::getFileExtension(filePath_)))) name += ".tar";
  if (name.empty()) name = "data";
  tempFolder_ = tempItemDirectory();
  tempFile_ = (fs::path(tempFolder_) / name).string();
  FILE* out = std::fopen(tempFile_.c_str(), "wb");
  if (!out) {
    setError(errorFailedToCreateFile(name));
    removeTempFile();
    return false;
  }
  bool ok = expand(out);
  ok = std::fclose(out) == 0 && ok;
  if (!ok) {
    if (!error_) setError(errorFailedToCreateFile(name));
    // A partial stream must never be taken for the whole one later.
    removeTempFile();
    return false;
  }
  return true;
}

bool SingleStreamArchive::listFiles() {
  error_.reset();
  rootEntry_->clear();
  if (!generateTempFile()) return false;
  if (isTar()) {
    tarManager_ = std::make_unique<UTarManager>(tempFile_, rootEntry_, actionDelegate_, password_,
                                                fileEncoding_);
    tarManager_->setIsArchiveFileTime(isArchiveFileTime_);
    return tarManager_->listFiles();
  }
  const auto size = FileUtil::getFileSize(tempFile_);
  rootEntry_->addToRootEntry(std::make_shared<ZipEntry>(FileUtil::getFileName(tempFile_), FilePos{},
                                                        0, FileUtil::getFileSize(filePath_), size,
                                                        0, std::nullopt, std::nullopt, true));
  return true;
}

bool SingleStreamArchive::unArchiveNoTarFormat(const std::string& destination) {
  FileUtil::createFolder(destination);
  const std::string target = FileUtil::getCreateName(destination, FileUtil::getFileName(tempFile_));
  return writeFileAtomically(target, [&](const Sink& sink) {
    FILE* in = std::fopen(tempFile_.c_str(), "rb");
    if (!in) return false;
    std::vector<char> buf(kBlock);
    std::size_t n;
    bool ok = true;
    while (ok && (n = std::fread(buf.data(), 1, buf.size(), in)) > 0) {
      if (checkCancelled())
        ok = false;
      else
        ok = sink(buf.data(), n);
    }
    std::fclose(in);
    return ok;
  });
}

bool SingleStreamArchive::unArchivePath(const ZipEntry* entry, const std::string& destination) {
  error_.reset();
  if (!generateTempFile()) return false;
  if (!isTar()) return unArchiveNoTarFormat(destination);
  if (!tarManager_) {
    tarManager_ = std::make_unique<UTarManager>(tempFile_, rootEntry_, actionDelegate_, password_,
                                                fileEncoding_);
    tarManager_->setIsArchiveFileTime(isArchiveFileTime_);
  }
  return tarManager_->unArchivePath(entry, destination);
}

bool UGZipArchive::expand(FILE* out) {
  FILE* in = std::fopen(filePath_.c_str(), "rb");
  if (!in) {
    setError(errorFailedOpenFile());
    return false;
  }
  // Inflated here rather than through gzread, which takes a stream cut short
  // for a complete one: a truncated or damaged file must not pass as whole.
  z_stream z{};
  if (inflateInit2(&z, 15 + 16) != Z_OK) {
    std::fclose(in);
    setError(errorArchive());
    return false;
  }
  std::vector<unsigned char> inBuf(128 * 1024);
  std::vector<unsigned char> outBuf(kBlock);
  std::uint64_t consumed = 0;
  bool ok = true;
  bool memberEnded = false;
  std::string failure;
  for (;;) {
    if (checkCancelled()) {
      ok = false;
      break;
    }
    if (z.avail_in == 0) {
      const std::size_t n = std::fread(inBuf.data(), 1, inBuf.size(), in);
      if (n == 0) break;
      z.next_in = inBuf.data();
      z.avail_in = static_cast<uInt>(n);
    }
    if (memberEnded) {
      // Concatenated members each start with the gzip magic; zeros that
      // some tools pad with end the file.
      while (z.avail_in > 0 && *z.next_in == 0) {
        ++z.next_in;
        --z.avail_in;
        ++consumed;
      }
      if (z.avail_in == 0) continue;
      if (*z.next_in != 0x1f) break;
      inflateReset(&z);
      memberEnded = false;
    }
    z.next_out = outBuf.data();
    z.avail_out = static_cast<uInt>(outBuf.size());
    const uInt before = z.avail_in;
    const int rc = inflate(&z, Z_NO_FLUSH);
    consumed += before - z.avail_in;
    if (rc == Z_STREAM_END) {
      memberEnded = true;
    } else if (rc != Z_OK && rc != Z_BUF_ERROR) {
      const std::string why = z.msg ? z.msg : "";
      if (why.find("incorrect data check") != std::string::npos)
        failure = "gzip CRC error: the data is damaged";
      else if (why.find("incorrect length check") != std::string::npos)
        failure = "gzip length check failed: the data is damaged";
      else if (why.find("incorrect header check") != std::string::npos)
        failure = "not gzip data";
      else
        failure = "the gzip data is damaged" + (why.empty() ? "" : ": " + why);
      ok = false;
      break;
    }
    const std::size_t produced = outBuf.size() - z.avail_out;
    if (produced > 0) {
      if (std::fwrite(outBuf.data(), 1, produced, out) != produced) {
        ok = false;
        break;
      }
      addExpanded(produced, [&] { return consumed; });
    }
  }
  if (ok && !memberEnded) failure = "the gzip data is truncated";
  if (!failure.empty()) {
    setError(Error{kArchiveErrorDomain, kArchiveErrorArchive, failure});
    ok = false;
  }
  inflateEnd(&z);
  std::fclose(in);
  return ok;
}

bool Bz2Manager::expand(FILE* out) {
  FILE* in = std::fopen(filePath_.c_str(), "rb");
  if (!in) {
    setError(errorFailedOpenFile());
    return false;
  }
  std::vector<char> buf(kBlock);
  std::vector<char> unused;
  bool ok = true;
  bool any = false;
  // Concatenated streams: the bytes one stream leaves over start the next.
  for (;;) {
    int bzError = BZ_OK;
    BZFILE* bz = BZ2_bzReadOpen(&bzError, in, 0, 0, unused.empty() ? nullptr : unused.data(),
                                static_cast<int>(unused.size()));
    if (bzError != BZ_OK) {
      setError(errorArchive());
      ok = false;
      break;
    }
    while (bzError == BZ_OK) {
      if (checkCancelled()) {
        ok = false;
        break;
      }
      int n = BZ2_bzRead(&bzError, bz, buf.data(), static_cast<int>(buf.size()));
      if ((bzError == BZ_OK || bzError == BZ_STREAM_END) && n > 0) {
        any = true;
        if (std::fwrite(buf.data(), 1, static_cast<std::size_t>(n), out) !=
            static_cast<std::size_t>(n)) {
          ok = false;
          break;
        }
        addExpanded(static_cast<std::uint64_t>(n),
                    [&] { return static_cast<std::uint64_t>(std::ftell(in)); });
      }
    }
    if (ok && bzError != BZ_STREAM_END) {
      const char* message = bzError == BZ_UNEXPECTED_EOF ? "the bzip2 data is truncated"
                            : bzError == BZ_DATA_ERROR
                                ? "bzip2 CRC or data error: the data is damaged"
                            : bzError == BZ_DATA_ERROR_MAGIC ? "not bzip2 data"
                                                             : "the bzip2 data is damaged";
      setError(Error{kArchiveErrorDomain, kArchiveErrorArchive, message});
      ok = false;
    }
    if (!ok) {
      BZ2_bzReadClose(&bzError, bz);
      break;
    }
    void* rest = nullptr;
    int nRest = 0;
    BZ2_bzReadGetUnused(&bzError, bz, &rest, &nRest);
    std::vector<char> next(static_cast<char*>(rest), static_cast<char*>(rest) + nRest);
    BZ2_bzReadClose(&bzError, bz);
    unused.swap(next);
    if (unused.empty()) {
      int c = std::fgetc(in);
      if (c == EOF) break;
      std::ungetc(c, in);
    }
  }
  std::fclose(in);
  (void)any;
  return ok;
}

}  // namespace harbor
