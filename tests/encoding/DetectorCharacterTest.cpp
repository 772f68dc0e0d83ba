// Detection over the ICU detector and the entry points the editor, archive
// names and web archives call.
#include "encoding/DetectorCharacter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "EncodingTestHelpers.h"
#include "encoding/EncodingUtil.h"
#include "platform/Cancellation.h"

namespace harbor {
namespace {

using test::fixture;
using test::utf8;

TEST(DetectorCharacter, LegacyFilesDecodeToTheirOriginalText) {
  struct Case {
    const char* encoded;
    const char* original;
    const char* expected;  // the detector's name for it
  };
  for (const Case& c : {Case{"japanese.sjis.txt", "japanese.utf8.txt", "Shift_JIS"},
                        Case{"chinese.gbk.txt", "chinese.utf8.txt", "GB18030"},
                        Case{"russian.cp1251.txt", "russian.utf8.txt", "windows-1251"}}) {
    SCOPED_TRACE(c.encoded);
    const std::string path = test::testData(std::string("encoding/") + c.encoded).string();
    std::string used = "unchanged";
    Error error;
    auto text = DetectorCharacter::detectorWithFilePath(path, &used, &error);
    EXPECT_EQ(utf8(text), fixture(c.original));
    EXPECT_EQ(used, c.expected);
    EXPECT_EQ(error.message, "");

    auto candidates = DetectorCharacter::detectorFileEncoding(path);
    ASSERT_FALSE(candidates.empty());
    EXPECT_EQ(candidates.front(), c.expected);
    EXPECT_EQ(utf8(DetectorCharacter::detectorFile(path)), fixture(c.original));
    EXPECT_EQ(utf8(DetectorCharacter::detectorForData(fixture(c.encoded))), fixture(c.original));
  }
}

TEST(DetectorCharacter, OnlyTheSampleIsDetectedButAllIsDecoded) {
  // An ASCII head fills the ICU detector's sample; Shift_JIS follows, within
  // uchardet's reach. Candidates that fit the head but not the rest are
  // passed over (the odd length rules out UTF-16), and the whole text comes
  // back.
  std::string data(DetectorCharacter::kSampleSize, 'a');
  data += fixture("japanese.sjis.txt");
  if (data.size() % 2 == 0) data += '.';
  auto candidates = DetectorCharacter::detectorDataEncoding(data);
  ASSERT_NE(std::find(candidates.begin(), candidates.end(), "Shift_JIS"), candidates.end());

  std::string used;
  auto text = DetectorCharacter::detectorWithData(data, &used);
  EXPECT_EQ(used, "Shift_JIS");
  ASSERT_TRUE(text);
  EXPECT_NE(utf8(text)->find("シフトJIS"), std::string::npos);
}

TEST(DetectorCharacter, Utf8ShortcutAgreesWithTheDetector) {
  // The loader skips the detector for data it knows the detector would call
  // UTF-8 first; its answer must be the plain trial of the candidates.
  const std::string e = "\xC3\xA9";
  std::string longUtf8(DetectorCharacter::kSampleSize - 1, 'a');
  longUtf8 += "\xE6\x96\x87" + fixture("japanese.utf8.txt");  // cut by the sample's end
  std::string badAfterSample = fixture("japanese.utf8.txt");
  while (badAfterSample.size() < 3 * DetectorCharacter::kSampleSize)
    badAfterSample += badAfterSample;
  badAfterSample += "\xFF tail";
  for (const std::string& data : {fixture("japanese.utf8.txt"), "x" + e + e + e,
                                  "x" + e + e + e + e, "\xEF\xBB\xBF" + fixture("russian.utf8.txt"),
                                  longUtf8, badAfterSample, "caf" + e + e + e + e + "\xE0\x80\x80",
                                  e + e + e + e + "\xE3\x81", fixture("russian.cp1251.txt")}) {
    std::string fast = "-", plain = "-";
    auto text = DetectorCharacter::detectorWithData(data, &fast);
    auto expected =
        EncodingUtil::detectWithData(data, &plain, DetectorCharacter::detectorDataEncoding(data));
    EXPECT_EQ(text, expected) << data.substr(0, 40);
    EXPECT_EQ(fast, plain) << data.substr(0, 40);
  }
}

TEST(DetectorCharacter, CancelledLoaderGetsNothing) {
  const std::string data = fixture("japanese.utf8.txt");
  CancellationToken token;
  token.cancel();
  std::string used = "before";
  {
    CurrentCancellationScope scope(token);
    EXPECT_FALSE(DetectorCharacter::detectorWithData(data, &used));
  }
  EXPECT_EQ(used, "before");
  // The same bytes load once the thread is no longer cancelled.
  EXPECT_TRUE(DetectorCharacter::detectorWithData(data, &used));
  EXPECT_EQ(used, "UTF-8");
}

TEST(DetectorCharacter, DefaultCandidateOnlyWhereTheTableSaysSo) {
  EXPECT_EQ(DetectorCharacter::detectorForData(""), u"");
  EXPECT_EQ(DetectorCharacter::detectorBytesEncoding(nullptr, 0),
            DetectorCharacter::detectorBytesEncoding("", 0));

  // Names from archives: detected over the given length, decoded up to NUL.
  const std::string name = fixture("japanese.sjis.txt").substr(0, 60);
  auto decoded = utf8(DetectorCharacter::detectorForCChar(name.c_str(), name.size()));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->size(), 90u);  // 30 characters of 3 bytes
  EXPECT_EQ(fixture("japanese.utf8.txt").rfind(*decoded, 0), 0u);
  EXPECT_EQ(DetectorCharacter::detectorForCharArray("readme.txt", 10), u"readme.txt");
  EXPECT_FALSE(DetectorCharacter::detectorForCChar(nullptr, 3));
}

class DetectorBadInput : public ::testing::Test {
 protected:
  std::optional<std::u16string> load(const std::string& path) {
    used_ = "unchanged";
    error_ = {};
    return DetectorCharacter::detectorWithFilePath(path, &used_, &error_);
  }
  test::ScratchDir dir_;
  std::string used_;
  Error error_;
};

TEST_F(DetectorBadInput, EmptyFileIsEmptyText) {
  test::writeFile(dir_ / "empty.txt", "");
  EXPECT_EQ(load((dir_ / "empty.txt").string()), u"");
  EXPECT_EQ(used_, "UTF-8");
}

TEST_F(DetectorBadInput, UnreadableFilesSayWhy) {
  EXPECT_FALSE(load((dir_ / "missing.txt").string()));
  EXPECT_EQ(used_, "unchanged");
  EXPECT_NE(error_.message.find("missing.txt"), std::string::npos) << error_.message;
  EXPECT_NE(error_.message.find("No such file"), std::string::npos) << error_.message;

  EXPECT_FALSE(load(dir_.path().string()));
  EXPECT_NE(error_.message.find("directory"), std::string::npos) << error_.message;

  Error headError;
  EXPECT_TRUE(
      DetectorCharacter::detectorFileEncoding((dir_ / "missing.txt").string(), &headError).empty());
  EXPECT_FALSE(headError.message.empty());

  if (geteuid() != 0) {  // root reads anything
    test::writeFile(dir_ / "locked.txt", "secret");
    chmod((dir_ / "locked.txt").c_str(), 0);
    EXPECT_FALSE(load((dir_ / "locked.txt").string()));
    EXPECT_NE(error_.message.find("ermission"), std::string::npos) << error_.message;
  }
}

TEST_F(DetectorBadInput, BinaryIsNotText) {
  std::string elf(
      "\x7F"
      "ELF\x02\x01\x01",
      7);
  elf.append(9, '\0');
  for (int i = 0; i < 4000; ++i) elf += static_cast<char>((i * 37) & 0xFF);
  test::writeFile(dir_ / "prog", elf);
  EXPECT_FALSE(load((dir_ / "prog").string()));
  EXPECT_EQ(used_, "unchanged");
  EXPECT_NE(error_.message.find("not text"), std::string::npos) << error_.message;
}

TEST_F(DetectorBadInput, TruncatedSequenceIsNeverMistakenForUtf8) {
  // UTF-8 cut inside its last character: never "UTF-8", never a crash, and
  // no replacement characters in whatever else decodes it.
  std::string cut = fixture("japanese.utf8.txt");
  cut.resize(cut.size() - 2);
  test::writeFile(dir_ / "cut.txt", cut);
  auto text = load((dir_ / "cut.txt").string());
  EXPECT_NE(used_, "UTF-8");
  if (text) {
    EXPECT_EQ(text->find(u'\uFFFD'), std::u16string::npos);
  }
}

TEST_F(DetectorBadInput, HugeFileOnlyTouchesWhatItNeeds) {
  // 2 GiB of holes costs no disk. The sample is zeros, which every candidate
  // turns into NUL within its first slice, so the answer comes at once.
  const std::string path = (dir_ / "huge.bin").string();
  int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::ftruncate(fd, off_t{2} << 30), 0);
  ::close(fd);
  EXPECT_FALSE(DetectorCharacter::detectorFileEncoding(path).empty());
  EXPECT_FALSE(load(path));
  EXPECT_EQ(used_, "unchanged");
  EXPECT_NE(error_.message.find("not text"), std::string::npos);
}

}  // namespace
}  // namespace harbor
