#include "encoding/FileBytes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>

#include "platform/Strings.h"

namespace harbor {
namespace {

std::string fill(std::string text, std::initializer_list<std::string_view> args) {
  std::size_t at = 0;
  for (std::string_view a : args) {
    at = text.find("%@", at);
    if (at == std::string::npos) break;
    text.replace(at, 2, a);
    at += a.size();
  }
  return text;
}

std::nullopt_t fail(Error* error, const std::string& path, int err) {
  if (error)
    *error = cannotReadError(path, std::error_code(err, std::generic_category()).message());
  return std::nullopt;
}

struct FdCloser {
  int fd;
  ~FdCloser() {
    if (fd >= 0) ::close(fd);
  }
};

}  // namespace

Error cannotReadError(const std::string& path, const std::string& reason) {
  return Error{kEncodingErrorDomain, 1,
               fill(localizedString("EncodingCannotRead"), {path, reason})};
}

std::optional<FileBytes> FileBytes::read(const std::string& path, Error* error) {
  FdCloser file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (file.fd < 0) return fail(error, path, errno);
  struct stat st {};
  if (::fstat(file.fd, &st) != 0) return fail(error, path, errno);
  if (S_ISDIR(st.st_mode)) return fail(error, path, EISDIR);

  FileBytes bytes;
  if (S_ISREG(st.st_mode) && st.st_size > 0) {
    void* p =
        ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, file.fd, 0);
    if (p != MAP_FAILED) {
      ::madvise(p, static_cast<std::size_t>(st.st_size), MADV_SEQUENTIAL);
      bytes.mapped_ = static_cast<const char*>(p);
      bytes.size_ = static_cast<std::size_t>(st.st_size);
      return bytes;
    }
  }
  // Pipes, character devices and the like report no useful size: read on.
  try {
    char buf[65536];
    for (;;) {
      ssize_t n = ::read(file.fd, buf, sizeof buf);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return fail(error, path, errno);
      if (n == 0) break;
      bytes.owned_.append(buf, static_cast<std::size_t>(n));
    }
  } catch (const std::bad_alloc&) {
    return fail(error, path, ENOMEM);
  }
  return bytes;
}

std::optional<std::string> FileBytes::readHead(const std::string& path, std::size_t limit,
                                               Error* error) {
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    return fail(error, path, EISDIR);
  }
  std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!f) return fail(error, path, errno);
  std::string head(limit, '\0');
  std::size_t n = std::fread(head.data(), 1, limit, f.get());
  if (n < limit && std::ferror(f.get())) return fail(error, path, EIO);
  head.resize(n);
  return head;
}

FileBytes::FileBytes(FileBytes&& other) noexcept
    : mapped_(other.mapped_), size_(other.size_), owned_(std::move(other.owned_)) {
  other.mapped_ = nullptr;
  other.size_ = 0;
}

FileBytes& FileBytes::operator=(FileBytes&& other) noexcept {
  if (this != &other) {
    release();
    mapped_ = other.mapped_;
    size_ = other.size_;
    owned_ = std::move(other.owned_);
    other.mapped_ = nullptr;
    other.size_ = 0;
  }
  return *this;
}

FileBytes::~FileBytes() {
  release();
}

void FileBytes::release() {
  if (mapped_) ::munmap(const_cast<char*>(mapped_), size_);
  mapped_ = nullptr;
  size_ = 0;
}

}  // namespace harbor
