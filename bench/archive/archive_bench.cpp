// Zip creation and extraction beside zip and unzip at the same level, and
// .tar.gz extraction beside tar xzf. Each side works on the same warm files,
// best of a few runs, and the ratio (harbor / peer) is printed.
//
//   archive_bench [--scale S] [--runs N] [--dir PATH]
//
// At scale 1 the input is 1 GiB of mixed files: text-like compressible files
// of many sizes and incompressible random ones. Everything is built under a
// temporary folder that is removed at the end.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

#include "archive/ZipBase.h"
#include "archive/gzip/SingleStreamArchive.h"
#include "archive/tar/UTarManager.h"
#include "archive/zip/UZipArchive.h"
#include "archive/zip/UZipFileArchive.h"

namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double secondsOf(const std::function<void()>& work) {
  auto start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double best(int runs, const std::function<void()>& prepare, const std::function<void()>& work) {
  double b = 1e300;
  for (int i = 0; i < runs; ++i) {
    prepare();
    b = std::min(b, secondsOf(work));
  }
  return b;
}

void shell(const std::string& cmd) {
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "archive_bench: failed: %s\n", cmd.c_str());
    std::exit(1);
  }
}

// Mixed files adding up to `total` bytes: two thirds compressible text.
void makeInput(const fs::path& root, std::uint64_t total) {
  std::mt19937_64 rng(42);
  const char* words[] = {"harbor ", "archive ", "entry ", "folder ", "file ",
                         "data\n",  "the ",     "of ",    "and ",    "{ return x; }\n"};
  std::uint64_t made = 0;
  for (int i = 0; made < total; ++i) {
    const fs::path dir = root / ("d" + std::to_string(i % 37)) / ("s" + std::to_string(i % 5));
    fs::create_directories(dir);
    const bool text = i % 3 != 2;
    std::uint64_t size = (i % 50 == 0) ? (32u << 20) : (std::uint64_t{1} << (10 + rng() % 11));
    size = std::min(size, total - made);
    std::string buf;
    buf.reserve(size);
    while (buf.size() < size) {
      if (text) {
        buf += words[rng() % 10];
      } else {
        std::uint64_t r = rng();
        buf.append(reinterpret_cast<const char*>(&r), 8);
      }
    }
    buf.resize(size);
    FILE* f =
        std::fopen((dir / ("f" + std::to_string(i) + (text ? ".txt" : ".bin"))).c_str(), "wb");
    std::fwrite(buf.data(), 1, buf.size(), f);
    std::fclose(f);
    made += size;
  }
}

// A source tree: `files` small text files (200 B to 8 KiB) in folders of 100.
void makeSourceTree(const fs::path& root, int files) {
  std::mt19937_64 rng(7);
  const char* lines[] = {"#include <vector>\n", "int main() { return 0; }\n", "  // note\n",
                         "for (auto& x : v) x += 1;\n", "}\n"};
  for (int i = 0; i < files; ++i) {
    const fs::path dir = root / ("mod" + std::to_string(i / 100)) / ("pkg" + std::to_string(i % 3));
    fs::create_directories(dir);
    const std::size_t size = 200 + rng() % 8000;
    std::string buf;
    while (buf.size() < size) buf += lines[rng() % 5];
    buf.resize(size);
    FILE* f = std::fopen((dir / ("file" + std::to_string(i) + ".cpp")).c_str(), "wb");
    std::fwrite(buf.data(), 1, buf.size(), f);
    std::fclose(f);
  }
}

void print(const char* what, double harbor, double peer, const char* peerName) {
  std::printf("%-28s harbor %8.2f s   %-10s %8.2f s   ratio %.2f\n", what, harbor, peerName, peer,
              harbor / peer);
}

}  // namespace

int main(int argc, char** argv) {
  double scale = 1.0;
  int runs = 3;
  std::string base = fs::temp_directory_path().string();
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--scale") && i + 1 < argc)
      scale = std::atof(argv[++i]);
    else if (!std::strcmp(argv[i], "--runs") && i + 1 < argc)
      runs = std::atoi(argv[++i]);
    else if (!std::strcmp(argv[i], "--dir") && i + 1 < argc)
      base = argv[++i];
  }
  const fs::path work = fs::path(base) / "harbor-archive-bench";
  fs::remove_all(work);
  const fs::path input = work / "input";
  const auto total = static_cast<std::uint64_t>(scale * (1ull << 30));
  makeInput(input / "tree", total);
  std::printf("input: %.0f MiB of mixed files, best of %d runs\n", total / 1048576.0, runs);
  const std::string q = "'" + work.string() + "'";

  const fs::path ours = work / "ours.zip";
  const double createOurs = best(
      runs, [&] { fs::remove(ours); },
      [&] {
        auto w = harbor::ArchiveFactory::createZipFactory({(input / "tree").string()}, nullptr,
                                                          ours.string(), {});
        dynamic_cast<harbor::UZipFileArchive&>(*w).close();
      });
  const double createPeer = best(
      runs, [&] { fs::remove(work / "peer.zip"); },
      [&] { shell("cd " + q + "/input && zip -q -r -6 ../peer.zip tree"); });
  print("zip create", createOurs, createPeer, "zip -6");

  const fs::path out = work / "out";
  const double extractOurs = best(
      runs,
      [&] {
        fs::remove_all(out);
        fs::create_directories(out);
      },
      [&] {
        harbor::UZipArchive r((work / "peer.zip").string(), nullptr, nullptr, "");
        r.unArchivePath(out.string());
      });
  const double extractPeer = best(
      runs,
      [&] {
        fs::remove_all(out);
        fs::create_directories(out);
      },
      [&] { shell("unzip -q -o " + q + "/peer.zip -d " + q + "/out"); });
  print("zip extract", extractOurs, extractPeer, "unzip");

  shell("cd " + q + "/input && tar czf ../tree.tar.gz tree");
  const double tgzOurs = best(
      runs,
      [&] {
        fs::remove_all(out);
        fs::create_directories(out);
      },
      [&] {
        harbor::UGZipArchive r((work / "tree.tar.gz").string(), nullptr, nullptr, "");
        r.unArchivePath(out.string());
      });
  const double tgzPeer = best(
      runs,
      [&] {
        fs::remove_all(out);
        fs::create_directories(out);
      },
      [&] { shell("tar xzf " + q + "/tree.tar.gz -C " + q + "/out"); });
  print("tar.gz extract", tgzOurs, tgzPeer, "tar xzf");

  // Many small files: per-entry costs dominate, not bytes.
  const fs::path src = work / "src";
  makeSourceTree(src / "tree", 30000);
  std::printf("source tree: 30000 small files\n");
  const std::string qs = "'" + src.string() + "'";
  shell("cd " + qs + " && zip -q -r -6 ../src.zip tree && tar cf ../src.tar tree");
  auto fresh = [&] {
    fs::remove_all(out);
    fs::create_directories(out);
  };
  const double smallZipOurs = best(runs, fresh, [&] {
    harbor::UZipArchive r((work / "src.zip").string(), nullptr, nullptr, "");
    r.unArchivePath(out.string());
  });
  const double smallZipPeer =
      best(runs, fresh, [&] { shell("unzip -q -o " + q + "/src.zip -d " + q + "/out"); });
  print("30000 files: zip extract", smallZipOurs, smallZipPeer, "unzip");
  const double smallTarOurs = best(runs, fresh, [&] {
    harbor::UTarManager r((work / "src.tar").string(), nullptr, nullptr, "");
    r.unArchivePath(out.string());
  });
  const double smallTarPeer =
      best(runs, fresh, [&] { shell("tar xf " + q + "/src.tar -C " + q + "/out"); });
  print("30000 files: tar extract", smallTarOurs, smallTarPeer, "tar xf");
  const fs::path smallZip = work / "small-ours.zip";
  const double smallCreateOurs = best(
      runs, [&] { fs::remove(smallZip); },
      [&] {
        auto w = harbor::ArchiveFactory::createZipFactory({(src / "tree").string()}, nullptr,
                                                          smallZip.string(), {});
        dynamic_cast<harbor::UZipFileArchive&>(*w).close();
      });
  const double smallCreatePeer = best(
      runs, [&] { fs::remove(work / "src-peer.zip"); },
      [&] { shell("cd " + qs + " && zip -q -r -6 ../src-peer.zip tree"); });
  print("30000 files: zip create", smallCreateOurs, smallCreatePeer, "zip -6");

  fs::remove_all(work);
  return 0;
}
