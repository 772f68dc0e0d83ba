// Zips in the methods and ciphers other tools write: each extracts to what
// 7zz itself extracts; a method not decoded here lists, names itself and
// leaves the rest extracting; AES passwords behave like the traditional ones.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "ArchiveTestUtil.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::run;
using test::runHarbor;

class ZipMethods : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    if (!test::haveTool("7zz")) GTEST_SKIP() << "7zz is not installed";
    src_ = dir_ / "src";
    fs::create_directories(src_ / "sub");
    std::mt19937 rng(3);
    std::string noise(70000, '\0');
    for (auto& c : noise) c = static_cast<char>(rng());
    std::string text;
    for (int i = 0; i < 4000; ++i) text += "line " + std::to_string(i % 97) + " of text\n";
    test::writeFile(src_ / "noise.bin", noise + noise);  // a repeat 70 KB back
    test::writeFile(src_ / "sub" / "text.txt", text);
    test::writeFile(src_ / "empty.txt", "");
  }
  // Zips src/ with 7zz and the given switches.
  fs::path zipWith(const std::string& name, const std::string& switches) {
    const fs::path out = dir_ / name;
    EXPECT_TRUE(run("cd '" + src_.string() + "' && 7zz a -tzip -bd " + switches + " '" +
                    out.string() + "' . >/dev/null"));
    return out;
  }
  // Extracts with harbor and with 7zz; true when both trees are the same.
  void expectSameAs7zz(const fs::path& zip, const std::string& password = "") {
    const fs::path ours = dir_ / (zip.stem().string() + "-ours");
    const fs::path theirs = dir_ / (zip.stem().string() + "-7zz");
    std::vector<std::string> args{"archive", "extract", zip.string(), ours.string()};
    if (!password.empty()) args.insert(args.end(), {"--password", password});
    auto r = runHarbor(args);
    ASSERT_EQ(r.code, 0) << r.err;
    ASSERT_TRUE(run("7zz x -bd -y " + (password.empty() ? "" : "'-p" + password + "'") + " -o'" +
                    theirs.string() + "' '" + zip.string() + "' >/dev/null"));
    EXPECT_TRUE(run("diff -r '" + ours.string() + "' '" + theirs.string() + "'"));
  }
  test::ScratchDir dir_;
  fs::path src_;
};

TEST_F(ZipMethods, EachMethodExtractsAs7zzExtractsIt) {
  for (const std::string method : {"Deflate64", "BZip2", "LZMA", "Copy", "Deflate"}) {
    SCOPED_TRACE(method);
    const fs::path zip = zipWith(method + ".zip", "-mm=" + method);
    auto list = runHarbor({"archive", "list", zip.string(), "--json"});
    ASSERT_EQ(list.code, 0) << list.err;
    EXPECT_EQ(nlohmann::json::parse(list.out)["entries"].size(), 4u);
    expectSameAs7zz(zip);
  }
}

TEST_F(ZipMethods, AesEntriesNeedTheirPassword) {
  for (const std::string& switches :
       {std::string("-mem=AES256 -mm=Deflate"), std::string("-mem=AES128 -mm=BZip2"),
        std::string("-mem=AES192 -mm=Copy")}) {
    SCOPED_TRACE(switches);
    const fs::path zip = zipWith("aes.zip", switches + " -p'open sesame'");
    expectSameAs7zz(zip, "open sesame");
    const fs::path out = dir_ / "wrong";
    auto r = runHarbor({"archive", "extract", zip.string(), out.string(), "--password", "nope"});
    EXPECT_EQ(r.code, 2) << r.err;
    EXPECT_EQ(runHarbor({"archive", "list", zip.string()}).code, 2) << "no password";
    EXPECT_FALSE(fs::exists(out / "noise.bin"));
    EXPECT_FALSE(fs::exists(out / "sub" / "text.txt"));
    fs::remove_all(out);
    fs::remove_all(dir_ / "aes-ours");
    fs::remove_all(dir_ / "aes-7zz");
    fs::remove(zip);
  }
}

TEST_F(ZipMethods, Aes256ZipsWeWriteOpenIn7zzAndDetectTampering) {
  const fs::path zip = dir_ / "ours.zip";
  auto made = runHarbor({"archive", "create", zip.string(), src_.string(), "--password", "pa55",
                         "--encryption", "aes256"});
  ASSERT_EQ(made.code, 0) << made.err;
  EXPECT_TRUE(run("7zz l -slt '" + zip.string() + "' | grep -q 'Method = AES-256 Deflate'"));
  const fs::path theirs = dir_ / "ours-7zz";
  ASSERT_TRUE(
      run("7zz x -bd -y -ppa55 -o'" + theirs.string() + "' '" + zip.string() + "' >/dev/null"));
  EXPECT_TRUE(run("diff -r '" + src_.string() + "' '" + (theirs / "src").string() + "'"));
  expectSameAs7zz(zip, "pa55");
  EXPECT_FALSE(run("7zz t -bd -pwrong '" + zip.string() + "' >/dev/null 2>&1"));

  // One flipped byte in the middle of the ciphertext: the code no longer
  // matches, and the file never appears under its name.
  std::string bytes = test::readFile(zip);
  const auto name = bytes.find("noise.bin");
  ASSERT_NE(name, std::string::npos);
  bytes[name + 2000] ^= 1;
  test::writeFile(zip, bytes);
  const fs::path out = dir_ / "tampered";
  auto r = runHarbor({"archive", "extract", zip.string(), out.string(), "--password", "pa55"});
  EXPECT_NE(r.code, 0);
  EXPECT_NE(r.err.find("authentication code does not match"), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(out / "src" / "noise.bin"));

  // The cipher is asked for with a password, and a 7z is always AES.
  EXPECT_EQ(runHarbor({"archive", "create", (dir_ / "no.zip").string(), src_.string(),
                       "--encryption", "aes256"})
                .code,
            2);
  EXPECT_EQ(runHarbor({"archive", "create", (dir_ / "no.7z").string(), src_.string(), "--password",
                       "x", "--encryption", "zipcrypto"})
                .code,
            2);
  EXPECT_FALSE(fs::exists(dir_ / "no.zip"));
}

TEST_F(ZipMethods, AnUnknownMethodListsAndTheRestExtracts) {
  const fs::path zip = dir_ / "mixed.zip";
  ASSERT_TRUE(run("cd '" + src_.string() + "' && 7zz a -tzip -bd -mm=PPMd '" + zip.string() +
                  "' noise.bin >/dev/null && 7zz a -tzip -bd -mm=Copy '" + zip.string() +
                  "' sub >/dev/null"));
  auto list = runHarbor({"archive", "list", zip.string(), "--json"});
  ASSERT_EQ(list.code, 0) << list.err;
  const fs::path out = dir_ / "mixed-out";
  auto r = runHarbor({"archive", "extract", zip.string(), out.string()});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("PPMd"), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(out / "noise.bin"));
  EXPECT_EQ(test::readFile(out / "sub" / "text.txt"), test::readFile(src_ / "sub" / "text.txt"));
}

TEST_F(ZipMethods, DamageIsNamedAndLeavesNoFile) {
  const fs::path zip = zipWith("stored.zip", "-mm=Copy");
  std::string bytes = test::readFile(zip);
  const auto at = bytes.find("line 5 of text");
  ASSERT_NE(at, std::string::npos);
  bytes[at] = 'L';
  test::writeFile(zip, bytes);
  const fs::path out = dir_ / "damaged";
  auto r = runHarbor({"archive", "extract", zip.string(), out.string()});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("CRC mismatch"), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(out / "sub" / "text.txt"));

  // Cut short inside a Deflate64 stream: the same, never a partial file.
  const fs::path d64 = zipWith("d64.zip", "-mm=Deflate64");
  std::string cut = test::readFile(d64);
  const auto noisePos = cut.find("noise.bin");
  ASSERT_NE(noisePos, std::string::npos);
  for (std::size_t i = noisePos + 200; i < noisePos + 400 && i < cut.size(); ++i) cut[i] ^= 0x5a;
  test::writeFile(d64, cut);
  const fs::path out2 = dir_ / "damaged64";
  r = runHarbor({"archive", "extract", d64.string(), out2.string()});
  EXPECT_NE(r.code, 0);
  EXPECT_FALSE(fs::exists(out2 / "noise.bin"));
}

}  // namespace
}  // namespace harbor
