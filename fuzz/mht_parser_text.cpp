// Web archives come from anywhere: the part scanner must end, and whatever a
// head says, every unpacked file must land inside the archive's folder.
#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "ParserChecks.h"
#include "viewers/mht/MhtFormatParser.h"

namespace {

char home[] = "/tmp/harbor-fuzz-mht-XXXXXX";

void removeHome() {
  std::error_code ec;
  std::filesystem::remove_all(home, ec);
}

// The unpacked folders go to a private home, gone at exit.
void setUpHome() {
  static bool done = [] {
    if (mkdtemp(home)) {
      setenv("XDG_DATA_HOME", home, 1);
      std::atexit(removeHome);
    }
    return true;
  }();
  (void)done;
}

// Relative path to content, for every file below `folder`.
std::map<std::string, std::string> tree(const std::string& folder) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> out;
  std::error_code ec;
  for (const auto& e : fs::recursive_directory_iterator(folder, ec)) {
    if (!e.is_regular_file()) continue;
    std::ifstream in(e.path(), std::ios::binary);
    out[fs::relative(e.path(), folder).string()] =
        std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fs = std::filesystem;
  setUpHome();
  const std::string bytes(reinterpret_cast<const char*>(data), size);

  harbor::MhtFormatParser scan;
  scan.setText(std::u16string(bytes.begin(), bytes.end()));
  if (scan.findReturnCode()) scan.parserText();
  for (const auto& f : scan.files()) {
    CHECK(!f->_fileName.empty() && f->_fileName.size() <= 255);
    CHECK(f->_fileName.find('/') == std::string::npos && f->_fileName != ".." &&
          f->_fileName != ".");
  }

  auto parser = harbor::MhtFormatParser::instanceWithData(bytes);
  const std::string root = parser->parser();
  const std::string temp = parser->tempRootPath();
  if (!root.empty()) {
    const fs::path base = fs::canonical(temp);
    for (const auto& f : parser->files()) {
      std::error_code ec;
      const fs::path full = fs::weakly_canonical(f->fullPath(), ec);
      CHECK(full.string().rfind(base.string() + "/", 0) == 0);
    }
  }
  std::error_code ec;

  // Read from a file, base64 bodies go to disk on the way (from a few bytes
  // on, so that small inputs take that path): the same files with the same
  // bytes, and nothing set aside left behind.
  const fs::path file = fs::path(home) / "input.mht";
  {
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (!out) return 0;
    std::fwrite(bytes.data(), 1, bytes.size(), out);
    std::fclose(out);
  }
  auto fromFile = harbor::MhtFormatParser::instanceWithFileURL(file.string());
  fromFile->_minSpooledBody = 8;
  const std::string fileRoot = fromFile->parser();
  const std::string fileTemp = fromFile->tempRootPath();
  CHECK(fileRoot.empty() == root.empty());
  if (!root.empty() && !fileRoot.empty()) {
    CHECK(fs::relative(fileRoot, fileTemp) == fs::relative(root, temp));
    CHECK(tree(fileTemp) == tree(temp));
  }
  if (!temp.empty()) fs::remove_all(temp, ec);
  if (!fileTemp.empty()) fs::remove_all(fileTemp, ec);
  for (const auto& e : fs::directory_iterator(harbor::MhtFormatParser::mhtTempDirectory(), ec)) {
    CHECK(e.path().filename().string().rfind(".spool", 0) != 0);
  }
  return 0;
}
