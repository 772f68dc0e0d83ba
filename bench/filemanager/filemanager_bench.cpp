// Listing, tree size and copying beside the coreutils doing the same work:
// ls -l with the matching sort, du -sb and cp -r. Each side runs on the same
// warm trees, best of a few runs, and the ratio (harbor / peer) is printed.
//
//   filemanager_bench [--scale S] [--runs N] [--dir PATH] [--no-big] [--only list|size|copy]
//
// At scale 1 the trees are 100 000 files to list, 200 000 entries to size,
// 50 000 small files and one 2 GiB file to copy; HARBOR_BENCH_SCALE works
// like --scale. Everything is built under a temporary folder that is removed
// at the end.

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "filemanager/FilePresenter.h"
#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FilePropertyTotalSize.h"
#include "filemanager/FileUtil.h"

extern char** environ;

namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
  double scale = 1.0;
  int runs = 3;
  std::string dir;
  bool big = true;
  std::string only;  // "list", "size" or "copy"; empty runs all
  bool wants(const char* part) const { return only.empty() || only == part; }
};

class Ascending : public harbor::IFilePresenter {
 public:
  void reloadData() override {}
  bool isOrderAsc() const override { return true; }
  void restoreSearchState(bool) override {}
};

double millisecondsOf(const std::function<void()>& work) {
  auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Timing {
  double ours = 1e300;
  double peer = 1e300;
};

// Best of `runs` for each side, the two taking turns so that a busy moment
// of the machine does not land on one side only.
Timing compare(int runs, const std::function<void(bool ours)>& prepare,
               const std::function<void()>& ours, const std::function<void()>& peer) {
  Timing t;
  for (int i = 0; i < 2 * runs; ++i) {
    const bool isOurs = (i % 4 == 0 || i % 4 == 3);  // ours, peer, peer, ours, ...
    if (prepare) prepare(isOurs);
    double ms = millisecondsOf(isOurs ? ours : peer);
    double& slot = isOurs ? t.ours : t.peer;
    slot = std::min(slot, ms);
  }
  return t;
}

// Runs a command with its output thrown away; false when it failed.
bool run(std::vector<std::string> argv) {
  std::vector<char*> args;
  for (auto& a : argv) args.push_back(a.data());
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    std::fprintf(stderr, "cannot run %s: %s\n", args[0], std::strerror(rc));
    return false;
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void writeBytes(const std::string& path, std::size_t size, std::size_t shift) {
  static std::string pattern = [] {
    std::string p(1 << 20, '\0');
    for (std::size_t i = 0; i < p.size(); ++i) p[i] = static_cast<char>((i * 131 + i / 977) | 1);
    return p;
  }();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    std::perror(path.c_str());
    std::exit(1);
  }
  std::size_t offset = shift % 4096;
  while (size > 0) {
    std::size_t n = std::min(size, pattern.size() - offset);
    if (::write(fd, pattern.data() + offset, n) != static_cast<ssize_t>(n)) {
      std::perror(path.c_str());
      std::exit(1);
    }
    size -= n;
    offset = 0;
  }
  ::close(fd);
}

void row(const char* what, const Timing& t) {
  const double ours = t.ours, peer = t.peer;
  std::printf("  %-34s %10.1f %10.1f %8.2fx\n", what, ours, peer, peer > 0 ? ours / peer : 0.0);
  std::fflush(stdout);
}

void dropTree(const fs::path& p) {
  std::error_code ec;
  fs::remove_all(p, ec);
}

Options parse(int argc, char** argv) {
  Options o;
  if (const char* env = std::getenv("HARBOR_BENCH_SCALE"); env && *env) o.scale = std::atof(env);
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto next = [&]() -> std::string {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "%s needs a value\n", a.c_str());
        std::exit(2);
      }
      return argv[++i];
    };
    if (a == "--scale") {
      o.scale = std::atof(next().c_str());
    } else if (a == "--runs") {
      o.runs = std::max(1, std::atoi(next().c_str()));
    } else if (a == "--dir") {
      o.dir = next();
    } else if (a == "--no-big") {
      o.big = false;
    } else if (a == "--only") {
      o.only = next();
    } else {
      std::fprintf(
          stderr,
          "usage: %s [--scale S] [--runs N] [--dir PATH] [--no-big] [--only list|size|copy]\n",
          argv[0]);
      std::exit(2);
    }
  }
  if (o.scale <= 0) o.scale = 1.0;
  return o;
}

}  // namespace

namespace {
int benchmark(const Options& opts, const fs::path& work);
}

int main(int argc, char** argv) {
  const Options opts = parse(argc, argv);
  std::string base = opts.dir.empty() ? fs::temp_directory_path().string() : opts.dir;
  std::string templ = base + "/harbor-fm-bench-XXXXXX";
  if (!::mkdtemp(templ.data())) {
    std::perror("mkdtemp");
    return 1;
  }
  const fs::path work = templ;
  // Harbor's own folders (document root, staging for copies) stay inside.
  ::setenv("HARBOR_ROOT", (work / "root").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (work / "data").c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", (work / "config").c_str(), 1);
  int rc = 1;
  try {
    rc = benchmark(opts, work);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "benchmark failed: %s\n", e.what());
  }
  dropTree(work);
  return rc;
}

namespace {
int benchmark(const Options& opts, const fs::path& work) {
  auto scaled = [&](double n, std::size_t least) {
    return std::max(least, static_cast<std::size_t>(n * opts.scale));
  };
  const std::size_t listFiles = scaled(100000, 10);
  const std::size_t treeEntries = scaled(200000, 1000);
  const std::size_t smallFiles = scaled(50000, 100);
  const std::size_t bigBytes = scaled(2.0 * (1u << 30), 1u << 20);
  const fs::path root = work / "root";
  fs::create_directories(root);

  std::printf("filemanager benchmark: scale %g, best of %d, in %s\n", opts.scale, opts.runs,
              work.c_str());
  std::printf("  %-34s %10s %10s %9s\n", "", "harbor ms", "peer ms", "ratio");

  // ---- Listing -------------------------------------------------------------
  if (opts.wants("list")) {
    const fs::path dir = root / "list";
    fs::create_directories(dir);
    const char* extensions[] = {".txt", ".png", ".mp3", ".pdf", "", ".cpp", ".heic", ".zip"};
    const auto now = std::chrono::system_clock::now();
    for (std::size_t i = 0; i < listFiles; ++i) {
      // Names that do not come in order of creation, sizes and dates that
      // differ, a mix of kinds.
      std::size_t k = (i * 7919) % listFiles;
      std::string name = (k % 3 == 0   ? "Item_"
                          : k % 3 == 1 ? "doc-"
                                       : "zeta ") +
                         std::to_string(k) + extensions[k % 8];
      std::string path = (dir / name).string();
      writeBytes(path, k % 2048, k);
      harbor::FileUtil::setFileModifiedDate(now - std::chrono::seconds((k * 104729) % 10000000),
                                            path);
    }
    std::printf("listing %zu files\n", listFiles);
    struct Order {
      const char* name;
      int type;
      const char* flag;
    };
    const Order orders[] = {{"by name (ls -l)", harbor::FilePresenter::kOrderName, "-l"},
                            {"by date (ls -lt)", harbor::FilePresenter::kOrderDate, "-lt"},
                            {"by type (ls -lX)", harbor::FilePresenter::kOrderType, "-lX"},
                            {"by size (ls -lS)", harbor::FilePresenter::kOrderSize, "-lS"}};
    Ascending delegate;
    for (const auto& order : orders) {
      std::size_t listed = 0;
      Timing t = compare(
          opts.runs, nullptr,
          [&] {
            harbor::FilePresenter presenter(dir.string(), &delegate);
            presenter.setDisplayType(order.type);
            presenter.configureSections();
            listed = 0;
            for (const auto& s : presenter.currentItems()) listed += s.size();
          },
          [&] {
            run({"ls", order.flag, dir.string()});
          });
      if (listed != listFiles) std::printf("  (listed %zu of %zu!)\n", listed, listFiles);
      row(order.name, t);
    }
  }

  // ---- Tree size -----------------------------------------------------------
  if (opts.wants("size")) {
    const fs::path tree = root / "tree";
    // 20 folders of 20 folders, the files spread over them.
    const std::size_t folders = 20 * 20;
    const std::size_t perFolder = std::max<std::size_t>(1, treeEntries / folders);
    std::size_t made = 0;
    for (std::size_t a = 0; a < 20; ++a) {
      for (std::size_t b = 0; b < 20; ++b) {
        const fs::path folder = tree / ("a" + std::to_string(a)) / ("b" + std::to_string(b));
        fs::create_directories(folder);
        for (std::size_t f = 0; f + 1 < perFolder && made < treeEntries; ++f, ++made) {
          writeBytes((folder / ("f" + std::to_string(f))).string(), (made * 37) % 300, made);
        }
      }
    }
    std::printf("tree size of %zu entries\n", made + folders + 20);
    std::uint64_t bytes = 0;
    Timing t = compare(
        opts.runs, nullptr,
        [&] { bytes = harbor::FilePropertyTotalSize::filesizeWithURL(tree.string()); },
        [&] {
          run({"du", "-sb", tree.string()});
        });
    if (bytes == 0) std::printf("  (nothing counted!)\n");
    row("total size (du -sb)", t);
  }

  // ---- Copying -------------------------------------------------------------
  if (opts.wants("copy")) {
    const fs::path small = root / "small";
    const std::size_t folders = std::max<std::size_t>(1, smallFiles / 500);
    for (std::size_t i = 0; i < smallFiles; ++i) {
      const fs::path folder = small / ("d" + std::to_string(i % folders));
      if (i < folders) fs::create_directories(folder);
      writeBytes((folder / ("s" + std::to_string(i) + ".txt")).string(), 512 + (i * 61) % 3584, i);
    }
    // Every run copies into a folder of its own and nothing is removed
    // until the end: on a file system without a journal, inodes freed a
    // moment ago make new ones slow to allocate, and that would time the
    // clean-up rather than the copy.
    int round = 0;
    auto target = [&](bool ours) {
      return work / ((ours ? "out-harbor-" : "out-cp-") + std::to_string(round / 2));
    };
    auto fresh = [&](bool ours) {
      fs::create_directories(target(ours));
      run({"sync"});
    };
    std::printf("copying\n");
    bool ok = true;
    Timing t = compare(
        opts.runs, fresh,
        [&] {
          ok = harbor::FilePropertyCopyURLS::executeWithURLs({small.string()},
                                                             target(true).string(), nullptr) &&
               ok;
          ++round;
        },
        [&] {
          run({"cp", "-r", small.string(), target(false).string() + "/"});
          ++round;
        });
    auto copied = harbor::FilePropertyFileNumAndSize::instanceWithFileURL(
        (work / "out-harbor-0" / "small").string());
    copied->execute();
    if (!ok || copied->fileNumber() != smallFiles) {
      std::printf("  (copy incomplete: %llu of %zu files)\n",
                  static_cast<unsigned long long>(copied->fileNumber()), smallFiles);
    }
    char label[64];
    std::snprintf(label, sizeof label, "%zu small files (cp -r)", smallFiles);
    row(label, t);

    if (opts.big) {
      const fs::path big = root / "big.bin";
      writeBytes(big.string(), bigBytes, 1);
      const fs::path ourTarget = work / "big-harbor";
      const fs::path peerTarget = work / "big-cp";
      // One file each: removing it between runs frees a single inode.
      auto freshBig = [&](bool ours) {
        const fs::path& p = ours ? ourTarget : peerTarget;
        dropTree(p);
        fs::create_directories(p);
        run({"sync"});
      };
      t = compare(
          opts.runs, freshBig,
          [&] {
            ok = harbor::FilePropertyCopyURLS::executeWithURLs({big.string()}, ourTarget.string(),
                                                               nullptr);
          },
          [&] {
            run({"cp", "-r", big.string(), peerTarget.string() + "/"});
          });
      std::error_code ec;
      if (!ok || fs::file_size(ourTarget / "big.bin", ec) != bigBytes) {
        std::printf("  (big copy failed)\n");
      }
      std::snprintf(label, sizeof label, "one %zu MiB file (cp -r)", bigBytes >> 20);
      row(label, t);
      dropTree(ourTarget);
      dropTree(peerTarget);
    }
  }

  return 0;
}
}  // namespace
