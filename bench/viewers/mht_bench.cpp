// Unpacking a large web archive: `harbor mht extract` beside ripmime on the
// same generated file (50 pages, 300 images, about 100 MB), each run as a
// child process so that its wall time and peak memory are its own.
//
//   mht_bench [--mb N] [--dir PATH] [--harbor PATH]

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
#include <string>
#include <vector>

namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kPages = 50;
constexpr int kImages = 300;

std::string base64(const std::string& bytes) {
  static const char* a = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve(bytes.size() / 3 * 4 + bytes.size() / 57 * 2 + 8);
  std::size_t line = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 2]);
    out += a[(v >> 18) & 63];
    out += a[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? a[(v >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? a[v & 63] : '=';
    if ((line += 4) == 76) {
      out += "\r\n";
      line = 0;
    }
  }
  return out;
}

// Quoted-printable for ASCII markup: "=" escaped, soft breaks at 76.
std::string quotedPrintable(const std::string& text) {
  std::string out;
  std::size_t line = 0;
  for (char c : text) {
    std::string piece = c == '=' ? "=3D" : std::string(1, c);
    if (c == '\n') {
      out += "\r\n";
      line = 0;
      continue;
    }
    if (line + piece.size() > 75) {
      out += "=\r\n";
      line = 0;
    }
    out += piece;
    line += piece.size();
  }
  return out;
}

std::string imageUrl(int i) {
  return "http://bench.test/assets/" + std::to_string(i % 30) + "/img" + std::to_string(i) + ".png";
}

std::string pageUrl(int p) { return "http://bench.test/pages/p" + std::to_string(p) + ".html"; }

void makeArchive(const fs::path& file, std::size_t megabytes) {
  std::mt19937_64 rng(7);
  const std::size_t imageBytes = megabytes * 1024 * 1024 / kImages * 3 / 4;
  std::ofstream out(file, std::ios::binary);
  out << "From: <Saved by bench>\r\nSubject: Bench archive\r\nMIME-Version: 1.0\r\n"
         "Content-Type: multipart/related;\r\n\ttype=\"text/html\";\r\n\tboundary=\"--bench--\""
         "\r\n\r\n\r\n";
  for (int p = 0; p < kPages; ++p) {
    std::string html = "<!DOCTYPE html><html><head><title>Page " + std::to_string(p) +
                       "</title></head><body>\n";
    for (int k = 0; k < kPages; ++k)
      html += "<a href=\"" + pageUrl(k) + "\">page " + std::to_string(k) + "</a>\n";
    for (int i = p * (kImages / kPages); i < (p + 1) * (kImages / kPages); ++i)
      html += "<p>Image " + std::to_string(i) + "</p><img src=\"" + imageUrl(i) + "\">\n";
    for (int k = 0; k < 200; ++k)
      html += "<p>Some text of paragraph " + std::to_string(k) + " on this page.</p>\n";
    html += "</body></html>\n";
    out << "----bench--\r\nContent-Type: text/html\r\nContent-Transfer-Encoding: "
           "quoted-printable\r\nContent-Location: "
        << pageUrl(p) << "\r\n\r\n"
        << quotedPrintable(html) << "\r\n";
  }
  std::string bytes(imageBytes, '\0');
  for (int i = 0; i < kImages; ++i) {
    for (std::size_t b = 0; b < bytes.size(); b += 8) {
      const std::uint64_t v = rng();
      std::memcpy(bytes.data() + b, &v, std::min<std::size_t>(8, bytes.size() - b));
    }
    std::memcpy(bytes.data(), "\x89PNG\r\n\x1a\n", 8);
    out << "----bench--\r\nContent-Type: image/png\r\nContent-Transfer-Encoding: base64\r\n"
           "Content-Location: "
        << imageUrl(i) << "\r\n\r\n"
        << base64(bytes) << "\r\n";
  }
  out << "----bench----\r\n";
}

struct Run {
  double seconds = 0;
  long peakKb = 0;
  int status = -1;
};

Run run(const std::vector<std::string>& args, const fs::path& home) {
  Run r;
  const auto start = Clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
    if (!freopen("/dev/null", "w", stdout)) _exit(127);
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  struct rusage usage {};
  wait4(pid, &status, 0, &usage);
  r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  r.peakKb = usage.ru_maxrss;
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t megabytes = 100;
  fs::path base = fs::temp_directory_path();
  fs::path harbor = fs::canonical("/proc/self/exe").parent_path().parent_path() / "bin/harbor";
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--mb")) megabytes = std::strtoul(argv[i + 1], nullptr, 10);
    if (!std::strcmp(argv[i], "--dir")) base = argv[i + 1];
    if (!std::strcmp(argv[i], "--harbor")) harbor = argv[i + 1];
  }
  const fs::path dir = base / ("mht_bench_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  const fs::path archive = dir / "big.mhtml";
  makeArchive(archive, megabytes);
  const double size = static_cast<double>(fs::file_size(archive)) / (1024 * 1024);

  // Best of three for each, alternating, so a busy moment hurts both alike.
  Run ours{1e9, 0, 0}, peer{1e9, 0, 0};
  for (int round = 0; round < 3; ++round) {
    fs::remove_all(dir / "ours");
    fs::remove_all(dir / "peer");
    fs::create_directories(dir / "peer");
    Run a = run({harbor.string(), "mht", "extract", archive.string(), (dir / "ours").string()}, dir);
    Run b = run({"ripmime", "-i", archive.string(), "-d", (dir / "peer").string()}, dir);
    if (a.status != 0 || b.status != 0) {
      std::fprintf(stderr, "mht_bench: harbor exited %d, ripmime exited %d\n", a.status,
                   b.status);
      fs::remove_all(dir);
      return 1;
    }
    if (a.seconds < ours.seconds) ours.seconds = a.seconds;
    if (b.seconds < peer.seconds) peer.seconds = b.seconds;
    ours.peakKb = std::max(ours.peakKb, a.peakKb);
    peer.peakKb = std::max(peer.peakKb, b.peakKb);
  }
  std::printf("%.1f MB archive, %d pages, %d images: harbor mht extract %.3f s, ripmime %.3f s "
              "(x%.2f, target within x2)\n",
              size, kPages, kImages, ours.seconds, peer.seconds, ours.seconds / peer.seconds);
  std::printf("peak memory: harbor %.1f MB, ripmime %.1f MB (x%.2f)\n", ours.peakKb / 1024.0,
              peer.peakKb / 1024.0,
              peer.peakKb ? static_cast<double>(ours.peakKb) / peer.peakKb : 0.0);
  fs::remove_all(dir);
  return 0;
}
