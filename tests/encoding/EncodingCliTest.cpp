// harbor detect, decode and encodings as scripts use them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "EncodingTestHelpers.h"

namespace harbor {
namespace {

using test::CliResult;
using test::fixture;

class EncodingCli : public test::TempHome {
 protected:
  CliResult harbor(const std::vector<std::string>& args) { return test::runHarbor(args); }
  std::string data(const char* name) { return test::testData(std::string("encoding/") + name); }
};

TEST_F(EncodingCli, DetectListsCandidatesAndTheDecodingName) {
  const std::string missing = (home() / "missing.txt").string();
  CliResult r =
      harbor({"detect", "--json", data("japanese.sjis.txt"), data("russian.cp1251.txt"), missing});
  EXPECT_EQ(r.code, 1);  // one file could not be read
  EXPECT_NE(r.err.find("missing.txt"), std::string::npos) << r.err;
  auto list = nlohmann::json::parse(r.out);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0]["path"], data("japanese.sjis.txt"));
  EXPECT_EQ(list[0]["encoding"], "Shift_JIS");
  EXPECT_EQ(list[0]["candidates"][0], "Shift_JIS");
  EXPECT_GT(list[0]["candidates"].size(), 1u);
  EXPECT_EQ(list[1]["encoding"], "windows-1251");
  EXPECT_TRUE(list[2]["encoding"].is_null());
  EXPECT_TRUE(list[2]["candidates"].empty());

  test::writeFile(home() / "bin.dat", std::string("\x7F"
                                                  "ELF\0\0\0\0\x01\x02",
                                                  10));
  r = harbor({"detect", (home() / "bin.dat").string()});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.out.find("(none)"), std::string::npos) << r.out;
  EXPECT_NE(r.err.find("not text"), std::string::npos) << r.err;

  // Names detectors use for the DOS and Mac tables come back as listed here.
  r = harbor({"detect", "--json", data("russian-man.ibm866.txt"),
              data("russian-man.maccyrillic.txt"), data("thai.tis620.txt")});
  EXPECT_EQ(r.code, 0) << r.err;
  list = nlohmann::json::parse(r.out);
  EXPECT_EQ(list[0]["encoding"], "IBM866");
  EXPECT_EQ(list[1]["encoding"], "x-mac-cyrillic");
  EXPECT_EQ(list[2]["encoding"], "windows-874");

  r = harbor({"detect", data("chinese.gbk.txt")});
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out.rfind(data("chinese.gbk.txt") + ": GB18030\n", 0), 0u) << r.out;
}

TEST_F(EncodingCli, DecodePrintsUtf8) {
  CliResult r = harbor({"decode", data("chinese.gbk.txt")});
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out, fixture("chinese.utf8.txt"));

  r = harbor({"decode", data("russian.cp1251.txt"), "--encoding", "KOI8-R"});
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.out, fixture("russian.utf8.txt"));

  r = harbor({"decode", data("japanese.sjis.txt"), "--encoding", "utf-8"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("not valid utf-8"), std::string::npos) << r.err;

  // A C1 control in valid UTF-8 is text, named or detected.
  test::writeFile(home() / "nel.txt", "one\xC2\x85two\n");
  for (auto args :
       {std::vector<std::string>{"decode", (home() / "nel.txt").string()},
        std::vector<std::string>{"decode", (home() / "nel.txt").string(), "--encoding", "UTF-8"}}) {
    r = harbor(args);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "one\xC2\x85two\n");
  }

  EXPECT_EQ(harbor({"decode", data("japanese.sjis.txt"), "--encoding", "Korean"}).code, 2);
  EXPECT_EQ(harbor({"decode"}).code, 2);
  r = harbor({"decode", (home() / "missing.txt").string()});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("harbor: decode: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("no such file or folder"), std::string::npos) << r.err;
}

TEST_F(EncodingCli, EncodingsListsDecodableNames) {
  CliResult r = harbor({"encodings", "--json"});
  EXPECT_EQ(r.code, 0);
  auto list = nlohmann::json::parse(r.out);
  ASSERT_GT(list.size(), 50u);
  bool sawShiftJis = false;
  for (const auto& item : list) sawShiftJis |= item["name"] == "Shift_JIS";
  EXPECT_TRUE(sawShiftJis);
}

}  // namespace
}  // namespace harbor
