// "Destination" and "Host" are client text: any pair either names nothing
// or a path inside the root. Input: the host, a line feed, the destination.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "net/webdav/DAVPaths.h"
#include "platform/Log.h"

namespace {

const std::string& root() {
  static const std::string path = [] {
    std::string base = std::filesystem::temp_directory_path().string() + "/harbor-dav-fuzz-XXXXXX";
    char* made = ::mkdtemp(base.data());
    if (!made) std::abort();
    std::filesystem::create_directories(base + "/a/b");
    std::error_code ec;
    std::filesystem::create_directory_symlink("/", base + "/out", ec);
    std::filesystem::create_directory_symlink(base + "/a", base + "/in", ec);
    return *harbor::davpath::realRoot(base);
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Refusals are logged; a log line per input would drown the run.
  static const bool quiet = (harbor::setLogSink([](const std::string&) {}), true);
  (void)quiet;
  std::string_view in(reinterpret_cast<const char*>(data), size);
  std::size_t lf = in.find('\n');
  std::string_view host = lf == std::string_view::npos ? std::string_view("h") : in.substr(0, lf);
  std::string_view destination = lf == std::string_view::npos ? in : in.substr(lf + 1);
  auto path = harbor::davpath::destinationPath(destination, host, root());
  if (path) {
    if (!harbor::davpath::isBelow(*path, root(), true)) __builtin_trap();
    std::error_code ec;
    auto real = std::filesystem::weakly_canonical(*path, ec);
    if (!ec && !harbor::davpath::isBelow(real.string(), root(), true)) __builtin_trap();
  }
  return 0;
}
