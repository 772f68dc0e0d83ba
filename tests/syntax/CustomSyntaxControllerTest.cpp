#include <gtest/gtest.h>

#include <filesystem>

#include "platform/ScreenPort.h"
#include "prefs/EditorUserDefaults.h"
#include "prefs/EditorUtils.h"
#include "support/TestSupport.h"
#include "syntax/CodeFactory.h"
#include "syntax/CustomSyntaxController.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

struct Port : IScreenPort {
  std::vector<std::string> keys;
  bool closed = false;
  void showAlert(const ScreenAlert& a, AlertReply) override { keys.push_back(a.key); }
  void showSheet(const ScreenSheet&, SheetReply) override {}
  void showMessage(const std::string& key, const std::string&) override { keys.push_back(key); }
  void setTitle(const std::string&) override {}
  void setBusy(bool) override {}
  void close() override { closed = true; }
};

class CustomSyntax : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
  }
  void TearDown() override {
    for (const char* name : {"a.stx", "b.stx"}) {
      EditorUserDefaults::removeEditorSyntaxWithFileName(name);
      EditorUserDefaults::removeEditorSyntaxOnlyFileWithFileName(name);
    }
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
    TempHome::TearDown();
  }
  std::string stx(const std::string& name, const std::string& comment = ";;") {
    const fs::path p = scratch / name;
    test::writeFile(p, "#LINECOMMENT=" + comment + "\n#KEYWORD=Keywords\nk\n");
    return p.string();
  }
  // Adds through the edit screen as the list's add button opens it.
  bool add(CustomSyntaxBaseConroller& list, const std::string& path, const std::string& value,
           Port& port) {
    auto screen = list.addSyntax(&port);
    if (!screen->pickStxFile(path)) return false;
    screen->value = value;
    return screen->saveContent();
  }
  test::ScratchDir scratch;
};

TEST_F(CustomSyntax, AddingStoresTheValueAsTypedAndTheRegistryFollows) {
  Port port;
  CustomSyntaxController list(&port);
  list.viewDidLoad();
  ASSERT_TRUE(add(list, stx("a.stx"), "  zork; zz,, ", port));
  EXPECT_TRUE(port.closed);
  // Two entries, the text kept as typed apart from the trim.
  EXPECT_EQ(list.rows(),
            (std::vector<std::pair<std::string, std::string>>{{"a.stx", "zork; zz,,"}}));
  EXPECT_EQ(EditorUserDefaults::getExtensionsWithExtString("html; htm,,").size(), 2u);
  EXPECT_TRUE(fs::exists(EditorUtils::fullNameForSyntaxExtension("a.stx")));
  auto parser = CodeFactory::codeFormatParserWithExtension("zork");
  ASSERT_TRUE(parser->codeConfigItem);
  EXPECT_EQ(parser->codeConfigItem->configType, 1);

  // Deleting a row drops the entry, its file and the registry row.
  ASSERT_TRUE(list.deleteRow(0));
  EXPECT_TRUE(list.rows().empty());
  EXPECT_FALSE(fs::exists(EditorUtils::fullNameForSyntaxExtension("a.stx")));
  EXPECT_FALSE(CodeFactory::codeFormatParserWithExtension("zork")->codeConfigItem);
}

TEST_F(CustomSyntax, TakenValuesTakenNamesAndEmptyFieldsAreRefused) {
  Port port;
  CustomSyntaxController list(&port);
  list.viewDidLoad();
  ASSERT_TRUE(add(list, stx("a.stx"), "php", port));
  port = Port{};
  // Another file may not take "php"; nothing of it stays behind.
  EXPECT_FALSE(add(list, stx("b.stx"), "php", port));
  ASSERT_EQ(port.keys.size(), 1u);
  EXPECT_NE(port.keys[0].find("php"), std::string::npos);
  EXPECT_FALSE(port.closed);
  EXPECT_EQ(EditorUserDefaults::getEditorSynaxSettings().count("b.stx"), 0u);
  // A second "a.stx" is a name the folder already holds.
  port = Port{};
  EXPECT_FALSE(add(list, stx("a.stx"), "inc", port));
  EXPECT_EQ(port.keys, (std::vector<std::string>{"FileExists"}));
  // Without a file or with a blank value: "NameNotNull".
  port = Port{};
  auto screen = list.addSyntax(&port);
  screen->value = "x";
  EXPECT_FALSE(screen->saveContent());
  ASSERT_TRUE(screen->pickStxFile(stx("b.stx")));
  screen->value = "  ";
  EXPECT_FALSE(screen->saveContent());
  EXPECT_EQ(port.keys, (std::vector<std::string>{"NameNotNull", "NameNotNull"}));
}

TEST_F(CustomSyntax, EditingKeepsOrReplacesTheFile) {
  Port port;
  CustomSyntaxController list(&port);
  list.viewDidLoad();
  ASSERT_TRUE(add(list, stx("a.stx"), "php", port));
  list.loadData();

  // The same file again: its own name is no clash, and "php" stays its own.
  auto screen = list.didSelectRow(0, &port);
  ASSERT_TRUE(screen);
  EXPECT_TRUE(screen->isEdit);
  EXPECT_FALSE(screen->isViewButtonHidden());
  screen->value = "php,phtml";
  ASSERT_TRUE(screen->saveContent());
  EXPECT_EQ(EditorUserDefaults::getEditorSynaxSettings().at("a.stx"), "php,phtml");

  // A new file replaces the old one under the new name.
  screen = list.didSelectRow(0, &port);
  ASSERT_TRUE(screen->pickStxFile(stx("b.stx", "##")));
  screen->value = "php";
  ASSERT_TRUE(screen->saveContent());
  EXPECT_FALSE(fs::exists(EditorUtils::fullNameForSyntaxExtension("a.stx")));
  EXPECT_TRUE(fs::exists(EditorUtils::fullNameForSyntaxExtension("b.stx")));
  EXPECT_EQ(list.rows(), (std::vector<std::pair<std::string, std::string>>{{"b.stx", "php"}}));
}

TEST_F(CustomSyntax, AFailedCopyDropsTheNewEntryAndStrayFilesGoOnLoad) {
  Port port;
  CustomSyntaxOnlyForFile list(&port);
  // A folder in the file's place makes the copy fail.
  fs::create_directories(EditorUtils::fullNameForSyntaxOnlyFile("a.stx") / "x");
  auto screen = list.addSyntax(&port);
  screen->tempStxFilePath = stx("a.stx");
  screen->value = "php.ini";
  EXPECT_FALSE(screen->saveContent());
  EXPECT_EQ(port.keys, (std::vector<std::string>{"ActionFailure"}));
  EXPECT_TRUE(EditorUserDefaults::getEditorSynaxOnlyFileSettings().empty());

  test::writeFile(EditorUtils::fullNameForSyntaxOnlyFile("stray.stx"), "x");
  list.viewDidLoad();
  EXPECT_FALSE(fs::exists(EditorUtils::fullNameForSyntaxOnlyFile("stray.stx")));
  EXPECT_FALSE(fs::exists(EditorUtils::fullNameForSyntaxOnlyFile("a.stx")));
  ASSERT_TRUE(add(list, stx("a.stx"), "php.ini", port));
  EXPECT_EQ(CodeFactory::codeFormatParser("/x/php.ini")->codeConfigItem->configType, 2);
}

}  // namespace
}  // namespace harbor
