#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "filemanager/FileCopy.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
using test::readFile;
using test::ScratchDir;
using test::writeFile;

std::string bytes(std::size_t n) {
  std::string s(n, '\0');
  for (std::size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
  return s;
}

struct Fd {
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
  int fd;
};

TEST(FileCopy, KernelCopyHonoursLimitBlocksAndOffsets) {
  ScratchDir dir;
  const std::string data = bytes(2 * FileCopy::kMaxBlock + 5);
  writeFile(dir / "in", data);
  writeFile(dir / "out", "head:");
  Fd in(::open((dir / "in").c_str(), O_RDONLY));
  Fd out(::open((dir / "out").c_str(), O_WRONLY));
  ASSERT_GE(::lseek(out.fd, 0, SEEK_END), 0);
  std::vector<std::uint64_t> blocks;
  const auto result = FileCopy::copyData(in.fd, out.fd, data.size() - 3, 1 << 19,
                                         [&](std::uint64_t n) { blocks.push_back(n); }, {});
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.copied, data.size() - 3);
  EXPECT_EQ(readFile(dir / "out"), "head:" + data.substr(0, data.size() - 3));
  std::uint64_t sum = 0;
  for (auto n : blocks) {
    EXPECT_LE(n, 1u << 19);
    sum += n;
  }
  EXPECT_EQ(sum, result.copied);
}

TEST(FileCopy, FallsBackToReadAndWriteWhereTheKernelCannotCopy) {
  // A pipe is no file the kernel copies from; the data must still arrive.
  ScratchDir dir;
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  Fd readEnd(fds[0]);
  const std::string data = bytes(300000);
  std::thread writer([&] {
    std::size_t done = 0;
    while (done < data.size()) {
      ssize_t n = ::write(fds[1], data.data() + done, data.size() - done);
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    ::close(fds[1]);
  });
  Fd out(::open((dir / "out").c_str(), O_WRONLY | O_CREAT, 0644));
  const auto result =
      FileCopy::copyData(readEnd.fd, out.fd, UINT64_MAX, FileCopy::kMaxBlock, {}, {});
  writer.join();
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.copied, data.size());
  EXPECT_EQ(readFile(dir / "out"), data);
}

TEST(FileCopy, CancellationAndFailuresStopTheCopy) {
  ScratchDir dir;
  writeFile(dir / "in", bytes(3 * FileCopy::kMaxBlock));
  Fd in(::open((dir / "in").c_str(), O_RDONLY));
  Fd out(::open((dir / "out").c_str(), O_WRONLY | O_CREAT, 0644));
  int blocks = 0;
  auto result = FileCopy::copyData(
      in.fd, out.fd, UINT64_MAX, FileCopy::kMaxBlock, [&](std::uint64_t) { ++blocks; },
      [&] { return blocks == 1; });
  EXPECT_EQ(result.failure, FileCopy::Failure::cancelled);
  EXPECT_EQ(result.copied, FileCopy::kMaxBlock);

  // A target opened for reading only cannot take the data.
  Fd readOnly(::open((dir / "out").c_str(), O_RDONLY));
  result = FileCopy::copyData(in.fd, readOnly.fd, UINT64_MAX, FileCopy::kMaxBlock, {}, {});
  EXPECT_FALSE(result.ok());
  EXPECT_EQ(result.copied, 0u);
}

}  // namespace
}  // namespace harbor
