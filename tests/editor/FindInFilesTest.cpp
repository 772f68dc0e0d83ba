#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>

#include "editor/FindTextBase.h"
#include "encoding/DetectorCharacter.h"
#include "platform/NotificationCenter.h"
#include "platform/Unicode.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {

struct Delegate : IFindTextBase {
  int finished = 0;
  void onFinishFindText(FindTextBase&) override { ++finished; }
};

std::shared_ptr<FindTextOptions> stringsOptions(std::u16string pattern,
                                                std::vector<std::u16string> texts) {
  auto o = FindTextOptions::instanceWithString(std::move(pattern));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    o->_sourceObjectsId.push_back("id" + std::to_string(i));
    o->_sourceURLs.push_back("url" + std::to_string(i));
  }
  o->_sourceObjects = std::move(texts);
  return o;
}

std::int64_t tagOf(const std::string& id) {
  return static_cast<std::int64_t>(std::hash<std::string>{}(id));
}

TEST(FindInFilesTest, StringsGatherHitsByTagAndTextsWithoutHitsLeaveNone) {
  Delegate delegate;
  auto options = stringsOptions(u"foo", {u"foo foo", u"nothing", u"a foo"});
  auto finder = FindTextInStrings::instanceWithOptions(options, &delegate);
  finder->execute();
  EXPECT_EQ(delegate.finished, 1);
  EXPECT_EQ(finder->findResultNumber, 3u);
  ASSERT_EQ(finder->_resultsObjects.size(), 2u);
  EXPECT_EQ(finder->_tagResults.count(tagOf("id1")), 0u);
  EXPECT_EQ(finder->_tagResults.at(tagOf("id0")).size(), 2u);
  EXPECT_EQ(finder->_tagSource.at(tagOf("id2")), "url2");
  EXPECT_EQ(finder->_tagResults.at(tagOf("id2"))[0]._tag, tagOf("id2"));
  // The end of the search lets go of the texts and the options.
  EXPECT_TRUE(options->_sourceObjects.empty());
  EXPECT_EQ(finder->_findTextOptions, nullptr);
  EXPECT_EQ(finder->firstFindResult(), nullptr);

  Delegate none;
  auto empty = FindTextInStrings::instanceWithOptions(stringsOptions(u"x", {}), &none);
  empty->execute();
  EXPECT_EQ(none.finished, 1);
  EXPECT_TRUE(empty->_resultsObjects.empty());
}

TEST(FindInFilesTest, ABadPatternIsKeptAsTheErrorAndWordMarksAreSharedOnce) {
  Delegate delegate;
  auto options = stringsOptions(u"(", {u"a", u"b"});
  options->_isRegex = true;
  auto finder = FindTextInStrings::instanceWithOptions(options, &delegate);
  finder->execute();
  EXPECT_EQ(finder->_error.domain, kFindTextErrorDomain);
  EXPECT_EQ(finder->findResultNumber, 0u);

  options = stringsOptions(u"foo", {u"foo-bar", u"foo_bar", u"xfoo"});
  options->_isRegex = options->_isMatchWord = true;
  finder = FindTextInStrings::instanceWithOptions(options, &delegate);
  finder->execute();
  EXPECT_EQ(options->_findString, u"\\bfoo\\b");
  EXPECT_EQ(finder->findResultNumber, 1u);
}

// Posts the cancel broadcast as soon as the first worker answers.
class CancellingStrings : public FindTextInStrings {
 public:
  std::atomic<int> answers{0};
  void onFinished(std::vector<FindTextItem> items, std::int64_t tag, const Error* error) override {
    if (answers++ == 0) NotificationCenter::defaultCenter().post(FileFindReplaceCancelNotification);
    FindTextInStrings::onFinished(std::move(items), tag, error);
  }
};

TEST(FindInFilesTest, TheCancelBroadcastStopsTheWorkersAndTheSearchStillEnds) {
  Delegate delegate;
  std::u16string lines;
  for (int i = 0; i < 5000; ++i) lines += u"a\n";
  std::vector<std::u16string> texts(200, lines);
  auto finder = FindTextInStrings::instanceWithOptions<CancellingStrings>(
      stringsOptions(u"a", std::move(texts)), &delegate);
  finder->execute();
  EXPECT_EQ(delegate.finished, 1);
  EXPECT_LT(finder->answers.load(), 200);
  EXPECT_LT(finder->findResultNumber, 200u * 5000u);
}

TEST(FindInFilesTest, ProjectFilesAreDecodedSniffedAndNotFollowedThroughLinks) {
  test::ScratchDir dir;
  test::writeFile(dir / "a.txt", "one\nfoo two\r\nthree foo\n");
  test::writeFile(dir / "bin.dat", std::string("foo\0foo", 7));
  test::writeFile(dir / "utf8.txt", "caf\xc3\xa9 foo\n");
  test::writeFile(dir / "cyr.txt", "\xef\xf0\xe8\xe2\xe5\xf2 foo\n");  // windows-1251
  std::filesystem::create_symlink(dir / "a.txt", dir / "link.txt");
  std::vector<std::string> files;
  for (const char* name : {"a.txt", "bin.dat", "utf8.txt", "cyr.txt", "link.txt", "gone.txt"}) {
    files.push_back((dir / name).string());
  }

  auto options = FindTextOptions::instanceWithString(u"foo");
  options->_isAutoEncoding = true;
  Delegate delegate;
  auto finder = FileTextInProject::instanceWithFiles(files, options, &delegate);
  finder->execute();
  EXPECT_EQ(delegate.finished, 1);
  EXPECT_TRUE(finder->_error.message.empty()) << finder->_error.message;
  ASSERT_EQ(finder->_tagResults.count(0), 1u);
  const auto& a = finder->_tagResults.at(0);
  ASSERT_EQ(a.size(), 2u);
  EXPECT_EQ(a[0]._lineNumber, 2u);
  EXPECT_EQ(a[1]._lineNumber, 3u);
  EXPECT_EQ(finder->_tagResults.count(1), 0u);  // binary
  EXPECT_EQ(finder->_tagResults.at(2)[0]._range.location, 5u);
  EXPECT_EQ(finder->_tagResults.count(4), 0u);  // link
  EXPECT_EQ(finder->findResultNumber, 4u);
  ASSERT_NE(finder->firstFindResult(), nullptr);

  // Raw bytes may rule out a plain ASCII file only: the Kelvin sign folds
  // to "k".
  test::writeFile(dir / "case.txt", std::string(40, '.') + "a KeY\n");
  test::writeFile(dir / "kelvin.txt",
                  "\xe2\x84\xaa"
                  "ey\n");
  options = FindTextOptions::instanceWithString(u"key");
  options->_isAutoEncoding = options->_isCaseSensitive = true;
  finder = FileTextInProject::instanceWithFiles(
      {(dir / "case.txt").string(), (dir / "kelvin.txt").string(), (dir / "a.txt").string()},
      options);
  finder->execute();
  EXPECT_EQ(finder->findResultNumber, 2u);
  EXPECT_EQ(finder->_tagResults.at(0)[0]._range.location, 42u);

  // Nor may a pattern's literal start rule out a file it matches.
  for (const char* pattern : {"KX?EY", "ke[y]", "zz|key", "(zz)?key", "\\ba Ke"}) {
    options = FindTextOptions::instanceWithString(toUtf16(pattern));
    options->_isAutoEncoding = options->_isCaseSensitive = options->_isRegex = true;
    finder = FileTextInProject::instanceWithFiles({(dir / "case.txt").string()}, options);
    finder->execute();
    EXPECT_EQ(finder->findResultNumber, 1u) << pattern;
  }

  // A chosen encoding decodes every file with it.
  options = FindTextOptions::instanceWithString(u"\u043f\u0440\u0438\u0432\u0435\u0442");
  options->_encodingName = "windows-1251";
  finder = FileTextInProject::instanceWithFiles({(dir / "cyr.txt").string()}, options);
  finder->execute();
  EXPECT_EQ(finder->findResultNumber, 1u);
}

// The file search rules files out and widens ASCII from raw bytes; what it
// finds must be what searching each file's decoded text finds.
TEST(FindInFilesTest, RawByteShortcutsFindWhatTheDecodedTextHolds) {
  test::ScratchDir dir;
  std::vector<std::pair<std::string, std::string>> corpus = {
      {"ascii.c", "int foo(void);\nfoo_bar foo-bar foo.x FOO\n"},
      {"crlf.txt", "foo\r\nx foo\r\n\r\nFoo\r\n"},
      {"utf8.txt",
       "caf\xc3\xa9"
       "foo \xc3\xa9"
       "foo\xc3\xa9 foo\xe2\x80\x94 foo\n\xe2\x84\xaa"
       "ey key\n"},
      {"latin1.txt",
       "r\xe9sum\xe9 foo \xe9"
       "foo foo\xe9\n"},
      {"utf16le.txt", std::string("\xff\xfe"
                                  "f\0o\0o\0 \0",
                                  10)},
      {"utf16cjk.txt", std::string("\xff\xfe\x2d\x4e\x87\x65", 6)},
      {"late.txt", std::string(9000, 'x') + std::string("\0 foo\n", 6)},
      {"nohit.txt", "nothing here \xc3\xa9\n"},
      {"sharp.txt",
       "stra\xc3\x9f"
       "e\n"},
      {"empty.txt", ""},
      // Only a folded character makes the hit, far from either end.
      {"kelvin.txt", std::string(100, '.') + "\xe2\x84\xaa" + "ey\n" + std::string(100, '.')},
  };
  // Sizes either side of where reading a file changes its way (one read,
  // a grown buffer, a mapping), with hits at the very end.
  for (std::size_t size :
       {(std::size_t{1} << 18) - 1, std::size_t{1} << 18, (std::size_t{1} << 18) + 1,
        std::size_t{1} << 20, (std::size_t{1} << 20) + 1}) {
    std::string bytes(size - 9, 'x');
    bytes[size / 2] = '\n';
    corpus.emplace_back("size" + std::to_string(size), bytes + "\nfoo FOO");
  }
  std::vector<std::string> files;
  for (const auto& [name, bytes] : corpus) {
    files.push_back((dir / name).string());
    test::writeFile(files.back(), bytes);
  }
  struct Mode {
    const char16_t* pattern;
    bool regex, word, ignoreCase;
  };
  for (const Mode& m : {Mode{u"foo", false, false, false}, Mode{u"foo", false, true, false},
                        Mode{u"foo", false, false, true}, Mode{u"key", false, false, true},
                        Mode{u"foo", true, true, false}, Mode{u"f[o]+", true, false, true},
                        Mode{u"\\bfoo", true, false, false}, Mode{u"ss", true, false, true}}) {
    auto options = FindTextOptions::instanceWithString(m.pattern);
    options->_isAutoEncoding = true;
    options->_isRegex = m.regex;
    options->_isMatchWord = m.word;
    options->_isCaseSensitive = m.ignoreCase;
    auto finder = FileTextInProject::instanceWithFiles(files, options);
    finder->execute();
    const std::string label = toUtf8(m.pattern) + (m.word ? " word" : "") +
                              (m.ignoreCase ? " nocase" : "") + (m.regex ? " regex" : "");
    ASSERT_TRUE(finder->_error.message.empty()) << label << finder->_error.message;

    auto plain = *FindTextOptions::instanceWithString(m.pattern);
    plain._isRegex = m.regex;
    plain._isMatchWord = m.word;
    plain._isCaseSensitive = m.ignoreCase;
    for (std::size_t i = 0; i < corpus.size(); ++i) {
      const std::string& bytes = corpus[i].second;
      std::vector<std::pair<std::size_t, std::size_t>> expected, got;
      if (bytes.substr(0, FileTextInProject::kBinarySniff).find('\0') == std::string::npos) {
        // Pure ASCII needs no detector, whatever bytes it holds.
        std::optional<std::u16string> text;
        if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return (c & 0x80) == 0; })) {
          text = std::u16string(bytes.begin(), bytes.end());
        } else {
          text = DetectorCharacter::detectorWithData(bytes, nullptr);
        }
        if (text) {
          Error error;
          for (const auto& item : FindTextInString::findTextItems(*text, plain, &error)) {
            const auto line =
                1 + std::count(text->begin(), text->begin() + item._range.location, u'\n');
            expected.emplace_back(item._range.location, static_cast<std::size_t>(line));
          }
        }
      }
      if (auto it = finder->_tagResults.find(static_cast<std::int64_t>(i));
          it != finder->_tagResults.end()) {
        for (const auto& item : it->second)
          got.emplace_back(item._range.location, item._lineNumber);
      }
      EXPECT_EQ(got, expected) << label << " in " << corpus[i].first;
    }
  }
}

// Posts the cancel broadcast when the tenth file answers.
class CancellingProject : public FileTextInProject {
 public:
  std::atomic<int> answers{0};
  void onFinished(std::vector<FindTextItem> items, std::int64_t tag, const Error* error) override {
    if (++answers == 10)
      NotificationCenter::defaultCenter().post(FileFindReplaceCancelNotification);
    FileTextInProject::onFinished(std::move(items), tag, error);
  }
};

// Workers share the file list: each file is searched once and its hits
// arrive under its own index; a cancel stops the rest and still ends.
TEST(FindInFilesTest, FilesSharedByTheWorkersAnswerOnceUnderTheirIndex) {
  test::ScratchDir dir;
  std::vector<std::string> files;
  for (int i = 0; i < 400; ++i) {
    files.push_back((dir / ("f" + std::to_string(i))).string());
    // File i holds i % 7 hits, on lines 2, 3, ...
    std::string body = "head\n";
    for (int k = 0; k < i % 7; ++k) body += "x foo " + std::to_string(i) + "\n";
    test::writeFile(files.back(), body);
  }
  auto finder =
      FileTextInProject::instanceWithFiles(files, FindTextOptions::instanceWithString(u"foo"));
  finder->execute();
  std::vector<std::int64_t> tags = finder->_resultsObjects;
  std::sort(tags.begin(), tags.end());
  EXPECT_EQ(std::adjacent_find(tags.begin(), tags.end()), tags.end());
  std::uint64_t total = 0;
  for (int i = 0; i < 400; ++i) {
    const auto it = finder->_tagResults.find(i);
    ASSERT_EQ(it != finder->_tagResults.end(), i % 7 != 0) << i;
    EXPECT_EQ(finder->_tagSource.at(i), files[static_cast<std::size_t>(i)]);
    if (it == finder->_tagResults.end()) continue;
    ASSERT_EQ(it->second.size(), static_cast<std::size_t>(i % 7));
    for (std::size_t k = 0; k < it->second.size(); ++k) {
      EXPECT_EQ(it->second[k]._tag, i);
      EXPECT_EQ(it->second[k]._lineNumber, k + 2);
      EXPECT_EQ(it->second[k]._showedText.view(), u"x foo " + toUtf16(std::to_string(i)));
    }
    total += it->second.size();
  }
  EXPECT_EQ(finder->findResultNumber, total);
  EXPECT_EQ(tags.size(), finder->_tagResults.size());

  Delegate delegate;
  auto cancelling = FileTextInProject::instanceWithFiles<CancellingProject>(
      files, FindTextOptions::instanceWithString(u"foo"), &delegate);
  cancelling->execute();
  EXPECT_EQ(delegate.finished, 1);
  EXPECT_LT(cancelling->answers.load(), 400);
}

TEST(FindInFilesTest, HitsOverTheMemoryLimitTogetherStopTheWholeSearch) {
  test::ScratchDir dir;
  std::vector<std::string> files;
  for (int i = 0; i < 20; ++i) {
    files.push_back((dir / ("f" + std::to_string(i))).string());
    test::writeFile(files.back(), std::string(200, 'a'));
  }
  FindTextInString::setItemMemoryLimit(1000 * sizeof(FindTextItem));
  auto options = FindTextOptions::instanceWithString(u"a");
  Delegate delegate;
  auto finder = FileTextInProject::instanceWithFiles(files, options, &delegate);
  finder->execute();
  FindTextInString::setItemMemoryLimit(FindTextInString::kDefaultItemMemoryLimit);
  EXPECT_EQ(delegate.finished, 1);
  EXPECT_TRUE(finder->isFull());
  EXPECT_EQ(finder->_error.message, FindTextInString::tooManyItemsError().message);
  EXPECT_LE(finder->findResultNumber, 1200u);
}

}  // namespace
}  // namespace harbor
