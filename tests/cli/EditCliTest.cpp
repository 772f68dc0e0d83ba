// harbor journal as scripts drive it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/TestSupport.h"

namespace harbor {
namespace {

TEST(JournalCli, StepsSaveAndLoadContinueTheSameHistory) {
  test::ScratchDir dir;
  test::writeFile(dir / "steps",
                  "[\"edit\",3,0,\"\\r\\nb\"]\n\n[\"start\"]\n[\"edit\",0,3,\"A\"]\n"
                  "[\"edit\",1,0,\"!\"]\n[\"undo\"]\n");
  auto saved = (dir / "journal.json").string();
  auto first =
      test::runHarbor({"journal", "a😀", "--steps", (dir / "steps").string(), "--save", saved});
  ASSERT_EQ(first.code, 0) << first.err;
  auto out = nlohmann::json::parse(first.out);
  ASSERT_EQ(out.size(), 5u);
  EXPECT_EQ(out[3]["text"], "A!\r\nb");
  EXPECT_EQ(out[3]["undo"], 3);  // the open group's items count
  EXPECT_EQ(out[4]["text"], "a😀\r\nb");
  EXPECT_EQ(out[4]["redo"], 1);

  test::writeFile(dir / "more", "[\"redo\"]\n[\"undo\"]\n[\"undo\"]\n");
  auto second = test::runHarbor({"journal", "--load", saved, "--steps", (dir / "more").string()});
  ASSERT_EQ(second.code, 0) << second.err;
  out = nlohmann::json::parse(second.out);
  EXPECT_EQ(out[0]["text"], "A!\r\nb");
  EXPECT_EQ(out[2]["text"], "a😀");
}

TEST(JournalCli, BadStepsAndArchivesAreRefused) {
  test::ScratchDir dir;
  auto steps = (dir / "steps").string();
  auto run = [&](const std::string& text, std::vector<std::string> extra = {}) {
    test::writeFile(steps, text);
    std::vector<std::string> args{"journal", "ab", "--steps", steps};
    args.insert(args.end(), extra.begin(), extra.end());
    return test::runHarbor(args);
  };
  EXPECT_EQ(run("[\"edit\",1,2,\"x\"]\n").code, 2);
  EXPECT_EQ(run("[\"edit\",1,\"x\"]\n").code, 2);
  EXPECT_EQ(run("[\"undo\",1]\n").code, 2);
  EXPECT_EQ(run("not json\n").code, 2);
  EXPECT_EQ(run("[\"jump\"]\n").code, 2);
  EXPECT_EQ(test::runHarbor({"journal", "ab"}).code, 2);  // --steps is required

  test::writeFile(dir / "bad.json",
                  R"({"sourceString":"ab","undoStack":{"items":[{"location":5,"length":0}]}})");
  auto refused = run("[\"undo\"]\n", {"--load", (dir / "bad.json").string()});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.err.find("outside the text"), std::string::npos);
}

}  // namespace
}  // namespace harbor

namespace harbor {
namespace {

class EditCli : public test::TempHome {};

TEST_F(EditCli, StepsDriveTheScreenAndBadStepsExitTwo) {
  auto file = (root() / "a.txt").string();
  test::writeFile(file, "one\r\n");
  auto steps = (root() / "steps").string();
  test::writeFile(steps,
                  "[\"edit\",true]\n[\"select\",3,0]\n[\"type\",\"😀!\"]\n[\"delete\"]\n"
                  "[\"options\",\"Save\"]\n");
  auto run = test::runHarbor({"--root", root().string(), "edit", file, "--steps", steps});
  ASSERT_EQ(run.code, 0) << run.err;
  auto out = nlohmann::json::parse(run.out);
  EXPECT_EQ(out["state"]["text"], "one😀\r\n");
  EXPECT_EQ(out["state"]["selection"], nlohmann::json::parse("[5,0]"));
  EXPECT_EQ(out["events"].back()["kind"], "close");
  EXPECT_EQ(test::readFile(file), "one😀\r\n");

  for (const char* bad :
       {"[\"options\",\"Nope\"]\n", "[\"alert\",0]\n", "[\"jump\"]\n", "[\"type\",3]\n"}) {
    test::writeFile(steps, bad);
    EXPECT_EQ(test::runHarbor({"--root", root().string(), "edit", file, "--steps", steps}).code, 2)
        << bad;
  }
}

}  // namespace
}  // namespace harbor
