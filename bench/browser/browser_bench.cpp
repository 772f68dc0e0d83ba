// The browser's actions through its controllers beside the tools doing the
// same work: paste beside cp -r, delete beside rm -rf, compress beside
// zip -r and extract beside unzip. While our side runs, a probe posts to the
// main queue every 10 ms and the longest wait is printed: work must stay off
// the main thread.
//
//   browser_bench [--scale S] [--runs N] [--dir PATH]
//
// At scale 1 the tree is 50 000 small files in 500 folders plus one 1 GiB
// file; HARBOR_BENCH_SCALE works like --scale (0.02 for a quick look).

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "browser/BrowserSupport.h"
#include "browser/FileManagerController.h"
#include "filemanager/FileUtil.h"
#include "platform/MainQueue.h"

extern char** environ;

namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using harbor::FileManagerController;
using harbor::MainQueue;

struct Options {
  double scale = 1.0;
  int runs = 2;
  std::string dir;
};

bool run(std::vector<std::string> argv, const std::string& cwd = {}) {
  std::vector<char*> args;
  for (auto& a : argv) args.push_back(a.data());
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
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

void writeBytes(const std::string& path, std::size_t size) {
  static const std::string pattern = [] {
    std::string p(1 << 20, '\0');
    for (std::size_t i = 0; i < p.size(); ++i) p[i] = static_cast<char>((i * 131 + i / 977) | 1);
    return p;
  }();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    std::perror(path.c_str());
    std::exit(1);
  }
  while (size > 0) {
    std::size_t n = std::min(size, pattern.size());
    if (::write(fd, pattern.data(), n) != static_cast<ssize_t>(n)) std::exit(1);
    size -= n;
  }
  ::close(fd);
}

void clean(const fs::path& p) {
  std::error_code ec;
  fs::remove_all(p, ec);
}

void raise(std::atomic<double>& worst, double ms) {
  double seen = worst.load();
  while (ms > seen && !worst.compare_exchange_weak(seen, ms)) {
  }
}

// CPU time the calling thread has used, in ms.
double threadCpuMs() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

// Posts to the main queue every 10 ms while it lives and keeps the longest
// time a post waited to run. It also keeps how late its own 10 ms sleeps
// woke: a wait that long on a thread doing nothing is the machine's, not the
// main thread's work.
class StallProbe {
 public:
  StallProbe() {
    thread_ = std::thread([this] {
      while (!stop_) {
        auto posted = Clock::now();
        MainQueue::shared().post([this, posted] {
          raise(worst_, std::chrono::duration<double, std::milli>(Clock::now() - posted).count());
        });
        auto before = Clock::now();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        raise(late_,
              std::chrono::duration<double, std::milli>(Clock::now() - before).count() - 10.0);
      }
    });
  }
  ~StallProbe() {
    stop_ = true;
    thread_.join();
    MainQueue::shared().runPending();
  }
  double worst() const { return worst_.load(); }
  double late() const { return late_.load(); }

 private:
  std::atomic<bool> stop_{false};
  std::atomic<double> worst_{0};
  std::atomic<double> late_{0};
  std::thread thread_;
};

struct Result {
  double ours = 1e300;
  double peer = 1e300;
  double stall = 0;
  double late = 0;     // the probe thread's own worst oversleep
  double mainCpu = 0;  // the main thread's CPU time in the slowest run
};

double timed(const std::function<void()>& work) {
  auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Our side: an action started on the main thread, timed until its worker ends
// while the main queue keeps running.
double ours(FileManagerController& browser, const std::function<void()>& start, Result& r) {
  StallProbe probe;
  const double cpuBefore = threadCpuMs();
  double ms = timed([&] {
    start();
    browser.waitForWorker();
  });
  r.mainCpu = std::max(r.mainCpu, threadCpuMs() - cpuBefore);
  r.stall = std::max(r.stall, probe.worst());
  r.late = std::max(r.late, probe.late());
  return ms;
}

void row(const char* what, const Result& r, double target) {
  const double ratio = r.peer > 0 ? r.ours / r.peer : 0;
  std::printf(
      "  %-10s %10.1f %10.1f %7.2fx (target %.1fx) %s  stall %.1f ms (probe woke %.1f ms late; "
      "main thread CPU %.1f ms)\n",
      what, r.ours, r.peer, ratio, target, ratio <= target ? "ok" : "SLOW", r.stall, r.late,
      r.mainCpu);
  std::fflush(stdout);
}

Options parse(int argc, char** argv) {
  Options o;
  if (const char* env = std::getenv("HARBOR_BENCH_SCALE"); env && *env) o.scale = std::atof(env);
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--scale" && i + 1 < argc) {
      o.scale = std::atof(argv[++i]);
    } else if (a == "--runs" && i + 1 < argc) {
      o.runs = std::max(1, std::atoi(argv[++i]));
    } else if (a == "--dir" && i + 1 < argc) {
      o.dir = argv[++i];
    } else {
      std::fprintf(stderr, "usage: %s [--scale S] [--runs N] [--dir PATH]\n", argv[0]);
      std::exit(2);
    }
  }
  if (o.scale <= 0) o.scale = 1.0;
  return o;
}

int benchmark(const Options& opts, const fs::path& work) {
  MainQueue::shared().adoptCurrentThread();
  const fs::path root = work / "root";
  const fs::path peers = work / "peers";
  fs::create_directories(root / "dst");
  fs::create_directories(peers);
  const int folders = std::max(1, static_cast<int>(500 * opts.scale));
  const int perFolder = 100;
  const std::size_t big = static_cast<std::size_t>((1ull << 30) * opts.scale);
  const fs::path src = root / "src";
  for (int f = 0; f < folders; ++f) {
    fs::path folder = src / ("d" + std::to_string(f));
    fs::create_directories(folder);
    for (int i = 0; i < perFolder; ++i)
      writeBytes((folder / ("f" + std::to_string(i) + ".txt")).string(), 512 + (i * 37) % 3000);
  }
  writeBytes((src / "big.bin").string(), big);
  std::printf("tree: %d files in %d folders + %.0f MiB; times in ms, best of %d\n",
              folders * perFolder, folders, big / 1048576.0, opts.runs);
  std::printf("  %-10s %10s %10s %8s\n", "action", "harbor", "peer", "ratio");

  auto port = std::make_shared<harbor::IScreenPort>();
  auto top = std::make_shared<FileManagerController>(root.string());
  top->setPort(port);
  top->viewDidLoad();
  auto dst = std::make_shared<FileManagerController>((root / "dst").string());
  dst->setPort(port);
  dst->viewDidLoad();
  double worstStall = 0;

  // Paste (copy) beside cp -r.
  Result paste;
  for (int r = 0; r < opts.runs; ++r) {
    clean(root / "dst" / "src");
    harbor::TransferClipboard::saveCopySystemPath(std::vector<std::string>{src.string()}, true);
    paste.ours = std::min(paste.ours, ours(
                                          *dst, [&] { dst->pasteFile(); }, paste));
    clean(peers / "src");
    paste.peer = std::min(paste.peer, timed([&] {
                            run({"cp", "-r", src.string(), peers.string()});
                          }));
  }
  row("paste", paste, 1.5);

  // Delete beside rm -rf, each on a fresh copy.
  Result del;
  for (int r = 0; r < opts.runs; ++r) {
    if (!fs::exists(root / "dst" / "src")) run({"cp", "-r", src.string(), (root / "dst").string()});
    dst->selectedRows().assign(1, (root / "dst" / "src").string());
    del.ours = std::min(del.ours, ours(
                                      *dst, [&] { dst->deleteItems(); }, del));
    if (!fs::exists(peers / "src")) run({"cp", "-r", src.string(), peers.string()});
    del.peer = std::min(del.peer, timed([&] { run({"rm", "-rf", (peers / "src").string()}); }));
  }
  row("delete", del, 1.5);

  // Compress beside zip -r.
  Result zip;
  for (int r = 0; r < opts.runs; ++r) {
    clean(root / "src.zip");
    top->selectedRows().assign(1, src.string());
    zip.ours = std::min(zip.ours, ours(
                                      *top, [&] { top->compressFile("zip", false); }, zip));
    clean(peers / "src.zip");
    zip.peer = std::min(zip.peer, timed([&] {
                          run({"zip", "-qr", (peers / "src.zip").string(), "src"}, root.string());
                        }));
  }
  row("compress", zip, 1.2);

  // Extract beside unzip, of the same archive.
  Result unzip;
  for (int r = 0; r < opts.runs; ++r) {
    clean(root / "src 2");
    unzip.ours = std::min(
        unzip.ours, ours(
                        *top, [&] { top->decompressFile((root / "src.zip").string()); }, unzip));
    clean(peers / "out");
    unzip.peer = std::min(
        unzip.peer, timed([&] {
          run({"unzip", "-q", (root / "src.zip").string(), "-d", (peers / "out").string()});
        }));
  }
  if (!fs::exists(root / "src 2" / "big.bin")) std::printf("  (extraction did not complete)\n");
  row("extract", unzip, 1.2);

  for (const Result* r : {&paste, &del, &zip, &unzip}) worstStall = std::max(worstStall, r->stall);
  std::printf("longest main-queue stall: %.1f ms (target under 50 ms) %s\n", worstStall,
              worstStall < 50 ? "ok" : "SLOW");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const Options opts = parse(argc, argv);
  std::string base = opts.dir.empty() ? fs::temp_directory_path().string() : opts.dir;
  std::string templ = base + "/harbor-browser-bench-XXXXXX";
  if (!::mkdtemp(templ.data())) {
    std::perror("mkdtemp");
    return 1;
  }
  const fs::path work = templ;
  ::setenv("HARBOR_ROOT", (work / "root").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (work / "data").c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", (work / "config").c_str(), 1);
  int rc = benchmark(opts, work);
  clean(work);
  return rc;
}
