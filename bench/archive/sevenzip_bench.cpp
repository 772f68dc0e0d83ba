// 7z creation and extraction beside 7zz on the same tree, with and without a
// password and encrypted names. Both sides are commands (`harbor archive` and
// 7zz) spawned without copying this process, so each peak memory is the
// command's own; the ratios (harbor / 7zz) of time, archive size and peak
// memory are printed.
//
//   sevenzip_bench [--scale S] [--dir PATH] [--keep]
//
// At scale 1 the tree holds 256 MiB: source text (this project's sources,
// each copy made distinct), ELF files from /usr/bin, and JPEG stand-ins
// (a JPEG header over random bytes: as incompressible as real photos).

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Run {
  double seconds = 0;
  double cpuSeconds = 0;  // user and system: fair even on a busy machine
  double peakMiB = 0;
  bool ok = false;
};

// Runs `args` in `dir` with its output discarded; its time and peak
// resident memory.
Run measure(const fs::path& dir, std::vector<std::string> args) {
  Run r;
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  const fs::path here = fs::current_path();
  fs::current_path(dir);
  const auto start = Clock::now();
  pid_t pid = 0;
  const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  fs::current_path(here);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return r;
  int status = 0;
  struct rusage usage {};
  wait4(pid, &status, 0, &usage);
  r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  r.cpuSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                 double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  r.peakMiB = usage.ru_maxrss / 1024.0;
  r.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return r;
}

void writeBytes(const fs::path& p, const std::string& data) {
  std::ofstream(p, std::ios::binary).write(data.data(), static_cast<std::streamsize>(data.size()));
}

void makeInput(const fs::path& root, std::uint64_t total) {
  std::mt19937_64 rng(7);
  std::vector<fs::path> sources;
  for (const auto& e : fs::recursive_directory_iterator(HARBOR_SOURCE_DIR "/src"))
    if (e.is_regular_file()) sources.push_back(e.path());
  std::vector<fs::path> elfs;
  for (const auto& e : fs::directory_iterator("/usr/bin")) {
    std::error_code ec;
    if (!e.is_regular_file(ec) || e.is_symlink(ec)) continue;
    std::ifstream f(e.path(), std::ios::binary);
    char magic[4] = {};
    f.read(magic, 4);
    if (std::memcmp(magic,
                    "\x7f"
                    "ELF",
                    4) == 0 &&
        fs::file_size(e.path()) < (8u << 20))
      elfs.push_back(e.path());
  }
  std::uint64_t text = 0, elf = 0, jpeg = 0;
  const std::uint64_t textShare = total * 45 / 100, elfShare = total * 35 / 100;
  for (int copy = 0; text < textShare; ++copy) {
    for (const auto& s : sources) {
      if (text >= textShare) break;
      std::stringstream buf;
      buf << std::ifstream(s, std::ios::binary).rdbuf() << "// copy " << copy << "\n";
      const fs::path out = root / "src" / std::to_string(copy) / s.filename();
      fs::create_directories(out.parent_path());
      writeBytes(out, buf.str());
      text += buf.str().size();
    }
  }
  for (std::size_t i = 0; elf < elfShare && !elfs.empty(); ++i) {
    const fs::path& from = elfs[i % elfs.size()];
    const fs::path out =
        root / "bin" / (std::to_string(i / elfs.size()) + "-" + from.filename().string());
    fs::create_directories(out.parent_path());
    fs::copy_file(from, out, fs::copy_options::overwrite_existing);
    elf += fs::file_size(out);
  }
  fs::create_directories(root / "photos");
  for (int i = 0; jpeg < total - text - elf; ++i) {
    std::string data = "\xFF\xD8\xFF\xE0";
    const std::size_t size = 200000 + rng() % 2000000;
    while (data.size() < size) {
      const std::uint64_t r = rng();
      data.append(reinterpret_cast<const char*>(&r), 8);
    }
    data += "\xFF\xD9";
    writeBytes(root / "photos" / ("p" + std::to_string(i) + ".jpg"), data);
    jpeg += data.size();
  }
}

void print(const char* what, const Run& ours, const Run& peer, double ourSize, double peerSize) {
  std::printf(
      "%-16s time %7.2f / %7.2f s = %.2f   cpu %7.2f / %7.2f s = %.2f   peak %5.0f / %5.0f MiB = "
      "%.2f",
      what, ours.seconds, peer.seconds, ours.seconds / peer.seconds, ours.cpuSeconds,
      peer.cpuSeconds, ours.cpuSeconds / peer.cpuSeconds, ours.peakMiB, peer.peakMiB,
      ours.peakMiB / peer.peakMiB);
  if (ourSize > 0) std::printf("   size %.0f / %.0f = %.3f", ourSize, peerSize, ourSize / peerSize);
  std::printf("%s\n", ours.ok && peer.ok ? "" : "   (A RUN FAILED)");
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  double scale = 1.0;
  bool keep = false;
  std::string base = fs::temp_directory_path().string();
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--scale") && i + 1 < argc)
      scale = std::atof(argv[++i]);
    else if (!std::strcmp(argv[i], "--dir") && i + 1 < argc)
      base = argv[++i];
    else if (!std::strcmp(argv[i], "--keep"))
      keep = true;
  }
  const fs::path work = fs::path(base) / "harbor-7z-bench";
  fs::remove_all(work);
  const auto total = static_cast<std::uint64_t>(scale * (256ull << 20));
  makeInput(work / "input/tree", total);
  std::printf("input: %.0f MiB of source text, ELF files and JPEG stand-ins\n", total / 1048576.0);
  std::printf("ratios are harbor / 7zz\n");
  std::fflush(stdout);

  for (const bool locked : {false, true}) {
    const std::string tag = locked ? " -p -mhe" : "";
    const std::string password = "bench password";
    const fs::path ours = work / (locked ? "ours-p.7z" : "ours.7z");
    const fs::path peer = work / (locked ? "peer-p.7z" : "peer.7z");
    std::vector<std::string> create = {HARBOR_COMMAND, "archive", "create", ours.string(),
                                       (work / "input/tree").string()};
    if (locked) create.insert(create.end(), {"--password", password});
    const Run createOurs = measure(work, create);
    std::vector<std::string> args = {"7zz",      "a",        "-t7z",    "-m0=LZMA2",
                                     "-mx9",     "-mf=off",  "-ms=on",  "-mmt1",
                                     "-mtm=off", "-mtc=off", "-mta=off"};
    if (locked) args.insert(args.end(), {"-p" + password, "-mhe=on"});
    args.insert(args.end(), {peer.string(), "tree"});
    const Run createPeer = measure(work / "input", args);
    std::error_code ec;
    print(("create" + tag).c_str(), createOurs, createPeer, double(fs::file_size(ours, ec)),
          double(fs::file_size(peer, ec)));

    const fs::path outOurs = work / "out-ours";
    const fs::path outPeer = work / "out-peer";
    fs::remove_all(outOurs);
    fs::remove_all(outPeer);
    std::vector<std::string> extract = {HARBOR_COMMAND, "archive", "extract", peer.string(),
                                        outOurs.string()};
    if (locked) extract.insert(extract.end(), {"--password", password});
    const Run extractOurs = measure(work, extract);
    std::vector<std::string> x = {"7zz", "x", "-mmt1", "-y", "-o" + outPeer.string()};
    if (locked) x.push_back("-p" + password);
    x.push_back(peer.string());
    const Run extractPeer = measure(work, x);
    print(("extract" + tag).c_str(), extractOurs, extractPeer, 0, 0);
    if (!keep) {
      fs::remove_all(outOurs);
      fs::remove_all(outPeer);
    }
  }
  if (!keep) fs::remove_all(work);
  return 0;
}
