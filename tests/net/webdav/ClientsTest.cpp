// Real WebDAV clients against the share on loopback, each bounded by
// `timeout`. A client that is not installed skips its test.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "DAVTestServer.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::shell;

bool have(const std::string& program) {
  int rc = 0;
  shell("command -v " + program + " >/dev/null 2>&1", &rc);
  return rc == 0;
}

std::string quoted(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// "suite index name" to pass, FAIL or SKIPPED, from litmus's progress output.
std::map<std::string, std::string> litmusResults(const std::string& out) {
  std::map<std::string, std::string> results;
  std::regex token("-> running `(\\w+)'|(\\d+)\\. (\\w+)\\.+ |\\b(pass|FAIL|SKIPPED)\\b");
  std::string suite, current;
  for (std::sregex_iterator it(out.begin(), out.end(), token), end; it != end; ++it) {
    const auto& m = *it;
    if (m[1].matched) {
      suite = m[1];
      current.clear();
    } else if (m[2].matched) {
      current = suite + " " + m[2].str() + " " + m[3].str();
    } else if (!current.empty()) {
      results[current] = m[4];
      current.clear();
    }
  }
  return results;
}

std::map<std::string, std::string> expectedLitmus() {
  std::ifstream in(std::string(HARBOR_TEST_DATA) + "/../webdav/litmus-expected.txt");
  std::map<std::string, std::string> expected;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    std::string suite, index, name, result;
    words >> suite >> index >> name >> result;
    expected[suite + " " + index + " " + name] = result;
  }
  return expected;
}

class WebDavClientsTest : public test::DAVServerTest {
 protected:
  void runLitmus(const std::string& credentials) {
    if (!have("litmus")) GTEST_SKIP() << "litmus is not installed";
    test::ScratchDir work;
    std::string out = shell("cd " + quoted(work.path().string()) +
                            " && TESTS='basic copymove props locks http' timeout 300 litmus -k " +
                            url("/") + " " + credentials + " 2>&1");
    std::cout << "litmus summaries:\n";
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("<- summary", 0) == 0) std::cout << "  " << line << "\n";
    }
    auto got = litmusResults(out);
    auto want = expectedLitmus();
    ASSERT_FALSE(want.empty()) << "no expected table";
    for (const auto& [test, result] : want) {
      auto it = got.find(test);
      EXPECT_TRUE(it != got.end() && it->second == result)
          << test << ": expected " << result << ", got "
          << (it == got.end() ? std::string("nothing") : it->second);
    }
    for (const auto& [test, result] : got) {
      EXPECT_TRUE(want.count(test)) << "not in the table: " << test << " " << result;
    }
  }

  // cadaver reading a command script; its whole transcript.
  std::string runCadaver(const std::string& script, const std::string& home) {
    std::ofstream(home + "/script") << script;
    return shell("cd " + quoted(home) + " && HOME=" + quoted(home) + " timeout 60 cadaver " +
                 url("/") + " < script 2>&1");
  }
  void cadaverSession(const std::string& home) {
    test::writeFile(home + "/up.txt", "hello from cadaver\n");
    std::string out = runCadaver(
        "mkcol dir\nput up.txt dir/up.txt\nls dir\nget dir/up.txt down.txt\n"
        "copy dir/up.txt dir/copy.txt\nmove dir/copy.txt dir/moved.txt\nlock dir/up.txt\n"
        "propget dir/up.txt\nls dir\ndelete dir/moved.txt\nls dir\nquit\n",
        home);
    std::cout << "cadaver transcript:\n" << out;
    for (const char* step : {"Creating `dir': succeeded.", "Uploading up.txt to `/dir/up.txt':",
                             "Downloading `/dir/up.txt' to down.txt:",
                             "Copying `/dir/up.txt' to `/dir/copy.txt':  succeeded.",
                             "Moving `/dir/copy.txt' to `/dir/moved.txt':  succeeded.",
                             "Deleting `dir/moved.txt': succeeded.", "DAV: getcontentlength = 19",
                             "DAV: resourcetype = "}) {
      EXPECT_NE(out.find(step), std::string::npos) << step;
    }
    EXPECT_EQ(test::readFile(home + "/down.txt"), "hello from cadaver\n");
    EXPECT_EQ(test::readFile(doc("dir/up.txt")), "hello from cadaver\n");
    EXPECT_FALSE(fs::exists(doc("dir/moved.txt")));
    EXPECT_FALSE(fs::exists(doc("dir/copy.txt")));
    // cadaver wants a "Lock-Token" header, which the LOCK reply does not carry;
    // the lock itself is granted (the file is there, the body is well formed).
    EXPECT_NE(out.find("LOCK response missing Lock-Token header"), std::string::npos);
  }
};

TEST_F(WebDavClientsTest, LitmusMatchesTheReviewedTable) {
  runLitmus("");
}

TEST_F(WebDavClientsTest, LitmusWithDigestMatchesTheSameTable) {
  LoginPasswordUtil::saveWifiPassword("wifi pass");
  runLitmus("someone " + quoted("wifi pass"));
  LoginPasswordUtil::saveWifiPassword("");
}

TEST_F(WebDavClientsTest, CadaverScript) {
  if (!have("cadaver")) GTEST_SKIP() << "cadaver is not installed";
  test::ScratchDir home;
  cadaverSession(home.path().string());
}

TEST_F(WebDavClientsTest, CadaverWithDigest) {
  if (!have("cadaver")) GTEST_SKIP() << "cadaver is not installed";
  LoginPasswordUtil::saveWifiPassword("pw");
  test::ScratchDir home;
  test::writeFile(home / ".netrc", "machine 127.0.0.1 login someone password pw\n");
  fs::permissions(home / ".netrc", fs::perms::owner_read | fs::perms::owner_write);
  cadaverSession(home.path().string());
  // A wrong password gets nowhere.
  test::writeFile(home / ".netrc", "machine 127.0.0.1 login someone password wrong\n");
  std::string out = runCadaver("ls\nquit\n", home.path().string());
  EXPECT_EQ(out.find("Listing collection `/': succeeded."), std::string::npos) << out;
  LoginPasswordUtil::saveWifiPassword("");
}

TEST_F(WebDavClientsTest, RcloneRoundTrip) {
  if (!have("rclone")) GTEST_SKIP() << "rclone is not installed";
  test::ScratchDir work;
  fs::path src = work / "src";
  fs::create_directories(src / "a b" / "c%d" / "é#ü" / "deep" / "er");
  test::writeFile(src / "a b" / "c%d" / "é#ü" / "deep" / "er" / "f 1.txt", "nested");
  test::writeFile(src / "50% #1.txt", "percent and hash");
  test::writeFile(src / "日本語.txt", "non-ascii");
  test::writeFile(src / "empty", "");
  int rc = 0;
  shell("head -c 200000000 /dev/urandom > " + quoted((src / "big.bin").string()), &rc);
  ASSERT_EQ(rc, 0);
  std::string env = "RCLONE_CONFIG=/dev/null RCLONE_WEBDAV_URL=" + url("/") +
                    " RCLONE_WEBDAV_VENDOR=other timeout 300 rclone ";
  auto rclone = [&](const std::string& args) {
    std::string out = shell(env + args + " 2>&1", &rc);
    return out;
  };
  std::string s = quoted(src.string());
  std::string back = quoted((work / "back").string());
  EXPECT_EQ((rclone("copy " + s + " :webdav:up"), rc), 0);
  EXPECT_EQ((rclone("check --download " + s + " :webdav:up"), rc), 0);
  EXPECT_EQ((rclone("copy :webdav:up " + back), rc), 0);
  EXPECT_EQ((rclone("check --download :webdav:up " + back), rc), 0);
  shell("diff -r " + s + " " + back, &rc);
  EXPECT_EQ(rc, 0) << "round trip differs";

  // Sizes and times as the server has them.
  std::string listing = rclone("lsjson -R :webdav:up");
  EXPECT_NE(listing.find("\"Path\":\"big.bin\",\"Name\":\"big.bin\",\"Size\":200000000"),
            std::string::npos)
      << listing;
  EXPECT_NE(listing.find("\"Path\":\"empty\",\"Name\":\"empty\",\"Size\":0"), std::string::npos);
  EXPECT_NE(listing.find("\"Path\":\"a b/c%d/é#ü/deep/er/f 1.txt\""), std::string::npos);
  std::time_t mtime = std::chrono::system_clock::to_time_t(
      std::chrono::file_clock::to_sys(fs::last_write_time(doc("up/日本語.txt"))));
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&mtime));
  EXPECT_NE(listing.find("\"Path\":\"日本語.txt\",\"Name\":\"日本語.txt\",\"Size\":9,"
                         "\"MimeType\":\"text/plain; charset=utf-8\",\"ModTime\":\"" +
                         std::string(stamp) + "\""),
            std::string::npos)
      << listing;

  EXPECT_EQ((rclone("moveto :webdav:up/empty ':webdav:up/a b/moved empty'"), rc), 0);
  EXPECT_TRUE(fs::exists(doc("up/a b/moved empty")));
  EXPECT_FALSE(fs::exists(doc("up/empty")));
  EXPECT_EQ((rclone("delete ':webdav:up/50% #1.txt'"), rc), 0);
  EXPECT_FALSE(fs::exists(doc("up/50% #1.txt")));
  EXPECT_EQ((rclone("purge :webdav:up"), rc), 0);
  EXPECT_FALSE(fs::exists(doc("up")));
}

TEST_F(WebDavClientsTest, Davfs2Mount) {
  if (!have("mount.davfs")) GTEST_SKIP() << "davfs2 is not installed";
  if (::geteuid() != 0) GTEST_SKIP() << "mounting davfs2 needs root";
  if (!fs::exists("/dev/fuse")) GTEST_SKIP() << "no /dev/fuse";
  test::ScratchDir work;
  fs::path mnt = work / "mnt";
  fs::create_directory(mnt);
  int rc = 0;
  std::string mounted = shell("printf '\\n\\n' | timeout 30 mount -t davfs " + url("/") + " " +
                                  quoted(mnt.string()) + " 2>&1",
                              &rc);
  if (rc != 0) GTEST_SKIP() << "davfs2 cannot mount here: " << mounted;
  std::string m = quoted(mnt.string());
  fs::path src = work / "src";
  fs::create_directories(src / "d 1" / "é");
  test::writeFile(src / "d 1" / "é" / "f.txt", "mounted");
  test::writeFile(src / "top.bin", std::string(100000, 'z'));
  // Listing a davfs2 folder fails with EINVAL in this kind of container for
  // any server, so the tree goes in and out by name.
  shell("cp -r " + quoted(src.string()) + " " + m + "/tree", &rc);
  EXPECT_EQ(rc, 0);
  shell("cmp " + quoted((src / "d 1/é/f.txt").string()) + " " + m + "/tree/'d 1'/é/f.txt", &rc);
  EXPECT_EQ(rc, 0);
  shell("cmp " + quoted((src / "top.bin").string()) + " " + m + "/tree/top.bin", &rc);
  EXPECT_EQ(rc, 0);
  shell("mv " + m + "/tree/top.bin " + m + "/tree/renamed.bin && rm " + m +
            "/tree/'d 1'/é/f.txt && rmdir " + m + "/tree/'d 1'/é",
        &rc);
  EXPECT_EQ(rc, 0);
  shell("timeout 60 umount " + m, &rc);
  EXPECT_EQ(rc, 0);
  // What the server's folder holds once the cache is written back.
  EXPECT_EQ(test::readFile(doc("tree/renamed.bin")), std::string(100000, 'z'));
  EXPECT_FALSE(fs::exists(doc("tree/top.bin")));
  EXPECT_FALSE(fs::exists(doc("tree/d 1/é")));
  EXPECT_TRUE(fs::is_directory(doc("tree/d 1")));
}

}  // namespace
}  // namespace harbor
