// Upload and download through the cloud operations beside cp and rsync -a on
// the same files, and the delay from a change in the sync folder to the
// query's update. Best of a few runs; ratios are harbor / peer.
//
//   cloud_bench [--scale S] [--runs N] [--dir PATH]
//
// At scale 1: one 1 GiB file and a folder of 10 000 small files.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "cloud/CloudProvider.h"
#include "cloud/ICloudBase.h"
#include "platform/MainQueue.h"

namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using harbor::CloudProvider;

double best(int runs, const std::function<void()>& prepare, const std::function<void()>& work) {
  double b = 1e300;
  for (int i = 0; i < runs; ++i) {
    prepare();
    auto start = Clock::now();
    work();
    b = std::min(b, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return b;
}

void shell(const std::string& cmd) {
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cloud_bench: failed: %s\n", cmd.c_str());
    std::exit(1);
  }
}

void writeRandom(const fs::path& p, std::uint64_t size, std::mt19937_64& rng) {
  FILE* f = std::fopen(p.c_str(), "wb");
  std::vector<std::uint64_t> block(1 << 17);
  for (std::uint64_t done = 0; done < size;) {
    for (auto& v : block) v = rng();
    std::size_t n = std::min<std::uint64_t>(size - done, block.size() * 8);
    std::fwrite(block.data(), 1, n, f);
    done += n;
  }
  std::fclose(f);
}

template <class Op>
void runOp(std::unique_ptr<Op> op) {
  op->setUseMainThread(false);
  op->start();
  op->waitRun();
  if (!op->isSuccess()) {
    std::fprintf(stderr, "cloud_bench: %s\n", op->errorMessage().c_str());
    std::exit(1);
  }
}

void compare(const char* what, int runs, const std::function<void()>& clear,
             const std::function<void()>& ours, const std::string& cpCmd,
             const std::string& rsyncCmd) {
  double h = best(runs, clear, ours);
  double c = best(runs, clear, [&] { shell(cpCmd); });
  double r = best(runs, clear, [&] { shell(rsyncCmd); });
  std::printf("%-28s harbor %8.3f s   cp %8.3f s (x%.2f)   rsync -a %8.3f s (x%.2f)\n", what, h, c,
              h / c, r, h / r);
}

}  // namespace

int main(int argc, char** argv) {
  double scale = 1;
  int runs = 3;
  fs::path base = fs::temp_directory_path();
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--scale")) scale = std::atof(argv[i + 1]);
    if (!std::strcmp(argv[i], "--runs")) runs = std::atoi(argv[i + 1]);
    if (!std::strcmp(argv[i], "--dir")) base = argv[i + 1];
  }
  const fs::path dir = base / ("cloud_bench_" + std::to_string(::getpid()));
  const fs::path src = dir / "src", drive = dir / "drive", out = dir / "out";
  fs::create_directories(src / "many");
  auto provider = std::make_shared<harbor::LocalSyncFolderProvider>(drive.string());
  fs::create_directories(provider->documentsURL());
  CloudProvider::setShared(provider);
  const fs::path docs = provider->documentsURL();
  setenv("XDG_RUNTIME_DIR", dir.c_str(), 1);

  std::mt19937_64 rng(7);
  const auto bigSize = static_cast<std::uint64_t>(scale * (1ull << 30));
  const int smallCount = std::max(1, static_cast<int>(scale * 10000));
  writeRandom(src / "big.bin", bigSize, rng);
  for (int i = 0; i < smallCount; ++i)
    writeRandom(src / "many" / ("f" + std::to_string(i) + ".txt"), 1 + rng() % 8192, rng);
  std::printf("input: %llu-byte file, %d small files; best of %d\n",
              static_cast<unsigned long long>(bigSize), smallCount, runs);

  auto clearDocs = [&] {
    fs::remove_all(docs / "big.bin");
    fs::remove_all(docs / "many");
  };
  compare(
      "upload 1 file", runs, clearDocs,
      [&] {
        runOp(harbor::ICloudUpload::instanceWithPath((src / "big.bin").string(),
                                                     (docs / "big.bin").string(), nullptr));
      },
      "cp '" + (src / "big.bin").string() + "' '" + (docs / "big.bin").string() + "'",
      "rsync -a '" + (src / "big.bin").string() + "' '" + (docs / "big.bin").string() + "'");
  compare(
      "upload small files", runs, clearDocs,
      [&] {
        runOp(harbor::ICloudUpload::instanceWithPath((src / "many").string(),
                                                     (docs / "many").string(), nullptr));
      },
      "cp -r '" + (src / "many").string() + "' '" + (docs / "many").string() + "'",
      "rsync -a '" + (src / "many").string() + "/' '" + (docs / "many").string() + "'");
  runOp(harbor::ICloudUpload::instanceWithPath((src / "big.bin").string(),
                                               (docs / "big.bin").string(), nullptr));
  runOp(harbor::ICloudUpload::instanceWithPath((src / "many").string(), (docs / "many").string(),
                                               nullptr));
  auto clearOut = [&] { fs::remove_all(out); };
  compare(
      "download 1 file", runs, clearOut,
      [&] {
        runOp(harbor::ICloudDownload::instanceWithPath((docs / "big.bin").string(), out.string(),
                                                       nullptr));
      },
      "cp '" + (docs / "big.bin").string() + "' '" + out.string() + "'",
      "rsync -a '" + (docs / "big.bin").string() + "' '" + out.string() + "'");
  compare(
      "download small files", runs, clearOut,
      [&] {
        runOp(harbor::ICloudDownload::instanceWithPath((docs / "many").string(), out.string(),
                                                       nullptr));
      },
      "cp -r '" + (docs / "many").string() + "' '" + out.string() + "'",
      "rsync -a '" + (docs / "many").string() + "/' '" + out.string() + "'");

  // Delay from a change to the query's update: the item appears, grows, goes.
  std::mutex m;
  int seen = 0;
  const fs::path watched = docs / "watched.txt";
  harbor::MetadataQuery query(provider, watched.string());
  query.startQuery([&](const auto&) {},
                   [&](const auto&) {
                     std::lock_guard lock(m);
                     ++seen;
                   });
  harbor::MainQueue::shared().runUntil([] { return false; }, std::chrono::milliseconds(100));
  std::vector<double> delays;
  for (int i = 0; i < 60; ++i) {
    int before;
    {
      std::lock_guard lock(m);
      before = seen;
    }
    auto start = Clock::now();
    if (i % 2 == 0) {
      FILE* f = std::fopen(watched.c_str(), "wb");
      std::fwrite("x", 1, static_cast<std::size_t>(1 + i), f);
      std::fclose(f);
    } else {
      fs::remove(watched);
    }
    // The watch reports through the main queue, which this thread runs.
    harbor::MainQueue::shared().runUntil(
        [&] {
          std::lock_guard lock(m);
          return seen > before;
        },
        std::chrono::seconds(2));
    delays.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  query.stopQuery();
  std::sort(delays.begin(), delays.end());
  std::printf("change to update: median %.1f ms, worst %.1f ms over %zu changes (target 50 ms)\n",
              delays[delays.size() / 2], delays.back(), delays.size());
  fs::remove_all(dir);
  return 0;
}
