#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <thread>

#include "filemanager/CommonUtil.h"
#include "filemanager/FileListItem.h"
#include "filemanager/FilePresenter.h"
#include "filemanager/OrderedGroupItems.h"
#include "filemanager/PickFileOrderType.h"
#include "platform/Cancellation.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"
#include "platform/UserDefaults.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::writeFile;
using Sections = FilePresenter::Sections;
using Titles = std::vector<std::string>;

class RecordingBrowser : public IFilePresenter {
 public:
  void reloadData() override { ++reloads; }
  bool isOrderAsc() const override { return ascending; }
  void restoreSearchState(bool restore) override { restored.push_back(restore); }

  bool ascending = true;
  int reloads = 0;
  std::vector<bool> restored;
};

class FileListModel : public test::TempHome {
 protected:
  void SetUp() override {
    test::TempHome::SetUp();
    savedLocale_ = icu::Locale::getDefault();
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("en"), status);
  }
  void TearDown() override {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(savedLocale_, status);
    test::TempHome::TearDown();
  }

  std::string at(const std::string& relative) const { return (root() / relative).string(); }

  // A folder under the root with the given entries; names ending in "/" are
  // folders.
  std::string folder(const std::string& relative, std::initializer_list<const char*> entries) {
    const fs::path dir = root() / relative;
    fs::create_directories(dir);
    for (std::string e : entries) {
      if (e.back() == '/') {
        fs::create_directories(dir / e);
      } else {
        writeFile(dir / e, "");
      }
    }
    return dir.string();
  }

  Sections listed(FilePresenter& p) {
    p.configureSections();
    return p.currentItems();
  }

  RecordingBrowser browser;

 private:
  icu::Locale savedLocale_;
};

TEST_F(FileListModel, EmptyFolderHasNoSectionsButIconNameViewHasOne) {
  const std::string dir = folder("empty", {});
  for (int order : {0, 1, 2, 3}) {
    FilePresenter p(dir, &browser);
    p.setDisplayType(order);
    EXPECT_TRUE(listed(p).empty()) << "order " << order;
    p.setShowItemstype(FilePresenter::kShowIcons);
    EXPECT_EQ(listed(p).size(), order == 0 ? 1u : 0u) << "order " << order;
    if (order == 0) {
      EXPECT_TRUE(p.currentItems()[0].empty());
      EXPECT_FALSE(p.collation().has_value());
    }
  }
}

TEST_F(FileListModel, InboxIsHiddenAtTheRootOnlyAndCaseExact) {
  folder("", {"Inbox/", "inbox.txt", "INBOX/", "sub/Inbox/"});
  FilePresenter top(root().string(), &browser);
  EXPECT_TRUE(top.isRoot());
  top.setShowItemstype(FilePresenter::kShowIcons);
  EXPECT_EQ(listed(top), (Sections{{at("INBOX"), at("inbox.txt"), at("sub")}}));

  FilePresenter sub(at("sub"), &browser);
  EXPECT_FALSE(sub.isRoot());
  EXPECT_EQ(sub.folderPath(), "sub");
  EXPECT_EQ(sub.parentPath(), "/");
  EXPECT_EQ(sub.fullFolderPath(), at("sub"));
  EXPECT_EQ(listed(sub), (Sections{{at("sub/Inbox")}}));
}

TEST_F(FileListModel, IgnoredNamesGoButDotFilesStay) {
  const std::string dir =
      folder("d", {".DS_Store", "__MACOSX/", ".git/", ".bashrc", "Thumbs.db", "a.txt"});
  FilePresenter p(dir, &browser);
  p.setShowItemstype(FilePresenter::kShowIcons);
  EXPECT_EQ(listed(p), (Sections{{dir + "/.bashrc", dir + "/.git", dir + "/a.txt"}}));
  EXPECT_EQ(p.fileNumber(), 3u);
}

TEST_F(FileListModel, FilterHidesFilesButNeverFolders) {
  const std::string dir = folder("f", {"a.TXT", "b.md", "c", "docs.md/", "pics/"});
  FilePresenter p(dir, &browser);
  p.setShowItemstype(FilePresenter::kShowIcons);
  p.setFileterType(ExtensionMap{{"txt", ""}});
  EXPECT_EQ(listed(p), (Sections{{dir + "/a.TXT", dir + "/docs.md", dir + "/pics"}}));
  p.setFileterType(ExtensionMap{});
  EXPECT_EQ(listed(p), (Sections{{dir + "/docs.md", dir + "/pics"}}));
}

TEST_F(FileListModel, NameOrderSectionsByInitialAndReversesWithTitlesKeptParallel) {
  const std::string dir = folder("n", {"banana", "Apple", "apricot", "cherry/", "42.txt"});
  FilePresenter p(dir, &browser);
  EXPECT_EQ(listed(p), (Sections{{dir + "/Apple", dir + "/apricot"},
                                 {dir + "/banana"},
                                 {dir + "/cherry"},
                                 {dir + "/42.txt"}}));
  EXPECT_EQ(p.collation(), (Titles{"A", "B", "C", "#"}));

  browser.ascending = false;
  EXPECT_EQ(listed(p), (Sections{{dir + "/42.txt"},
                                 {dir + "/cherry"},
                                 {dir + "/banana"},
                                 {dir + "/apricot", dir + "/Apple"}}));
  EXPECT_EQ(p.collation(), (Titles{"#", "C", "B", "A"}));
}

TEST_F(FileListModel, TypeOrderGroupsByKindThenExtensionThenName) {
  const std::string dir = folder("t", {"z.txt", "B.pdf", "a.TXT", "clip.mp4", "pic.png",
                                       "photo.heic", "README", "zdir/", "adir.png/"});
  FilePresenter p(dir, &browser);
  p.setDisplayType(FilePresenter::kOrderType);
  // A folder's extension counts too: "" sorts before "png".
  EXPECT_EQ(listed(p), (Sections{{dir + "/zdir", dir + "/adir.png"},
                                 {dir + "/B.pdf", dir + "/a.TXT", dir + "/z.txt"},
                                 {dir + "/clip.mp4"},
                                 {dir + "/pic.png"},
                                 {dir + "/README", dir + "/photo.heic"}}));
  EXPECT_EQ(p.collation(), (Titles{localizedString("Dir"), localizedString("Docs"),
                                   localizedString("Media"), localizedString("Img"), "#"}));

  // Descending keeps the kinds in place and reverses within them; empty
  // kinds go with their titles.
  fs::remove(dir + "/clip.mp4");
  browser.ascending = false;
  EXPECT_EQ(listed(p), (Sections{{dir + "/adir.png", dir + "/zdir"},
                                 {dir + "/z.txt", dir + "/a.TXT", dir + "/B.pdf"},
                                 {dir + "/pic.png"},
                                 {dir + "/photo.heic", dir + "/README"}}));
  EXPECT_EQ(p.collation(),
            (Titles{localizedString("Dir"), localizedString("Docs"), localizedString("Img"), "#"}));
}

TEST_F(FileListModel, DateAndSizeOrdersMakeOneUntitledSection) {
  const std::string dir = folder("s", {});
  writeFile(dir + "/mid", std::string(20, 'x'));
  writeFile(dir + "/big", std::string(300, 'x'));
  writeFile(dir + "/small", "x");
  auto now = std::chrono::system_clock::now();
  FileUtil::setFileModifiedDate(now - std::chrono::hours(3), dir + "/big");
  FileUtil::setFileModifiedDate(now - std::chrono::hours(1), dir + "/small");
  FileUtil::setFileModifiedDate(now - std::chrono::hours(2), dir + "/mid");

  FilePresenter p(dir, &browser);
  p.setDisplayType(FilePresenter::kOrderSize);
  EXPECT_EQ(listed(p), (Sections{{dir + "/small", dir + "/mid", dir + "/big"}}));
  EXPECT_FALSE(p.collation().has_value());
  p.setDisplayType(FilePresenter::kOrderDate);
  EXPECT_EQ(listed(p), (Sections{{dir + "/big", dir + "/mid", dir + "/small"}}));
  browser.ascending = false;
  EXPECT_EQ(listed(p), (Sections{{dir + "/small", dir + "/mid", dir + "/big"}}));

  // The loaders give the same answer on a list of paths as on a listing.
  p.loadDateSection({dir + "/mid", dir + "/small", dir + "/big"});
  EXPECT_EQ(p.currentItems(), (Sections{{dir + "/small", dir + "/mid", dir + "/big"}}));
}

TEST_F(FileListModel, LinksAndOddNamesAreListedAsTheyStand) {
  const std::string dir = folder("l", {"target/", "a.txt"});
  writeFile(dir + "/b.txt", std::string(500, 'b'));
  writeFile(dir + "/bad\xff.txt", "");
  fs::create_directory_symlink(dir + "/target", dir + "/folderlink");
  fs::create_symlink(dir + "/missing", dir + "/dangling");
  FilePresenter p(dir, &browser);
  p.setFileterType(ExtensionMap{{"txt", ""}});
  // A link to a folder is a folder and passes any filter; a dangling one is
  // a file without an extension.
  EXPECT_EQ(listed(p), (Sections{{dir + "/a.txt"},
                                 {dir + "/b.txt", dir + "/bad\xff.txt"},
                                 {dir + "/folderlink"},
                                 {dir + "/target"}}));
  // A link weighs what the link itself weighs, not its target.
  p.setFileterType(std::nullopt);
  p.setDisplayType(FilePresenter::kOrderSize);
  const auto linkSize = FileUtil::getFileSize(dir + "/folderlink");
  ASSERT_LT(linkSize, 500u);
  const Sections bySize = listed(p);
  ASSERT_EQ(bySize.size(), 1u);
  auto place = [&](const std::string& name) {
    return std::find(bySize[0].begin(), bySize[0].end(), dir + "/" + name) - bySize[0].begin();
  };
  EXPECT_LT(place("folderlink"), place("b.txt"));
  EXPECT_LT(place("b.txt"), place("target"));
  p.setDisplayType(FilePresenter::kOrderType);
  EXPECT_EQ(listed(p).front(), (std::vector<std::string>{dir + "/folderlink", dir + "/target"}));
}

TEST_F(FileListModel, SearchHitsAreSortedLikeAListing) {
  const std::string dir = folder("h", {"x/note.txt", "x/note.png", "note/", "y/Note.mp3"});
  FilePresenter p(dir, &browser);
  p.setDisplayType(FilePresenter::kOrderType);
  std::thread([&] { p.searchThread("note"); }).join();
  EXPECT_EQ(
      listed(p),
      (Sections{
          {dir + "/note"}, {dir + "/x/note.txt"}, {dir + "/y/Note.mp3"}, {dir + "/x/note.png"}}));
  EXPECT_EQ(p.fileNumber(), 4u);
}

TEST_F(FileListModel, SearchReplacesTheListingUntilAnEmptySearch) {
  const std::string dir = folder("Alpha", {"data.txt", "notes.md", "deep/", "deep/DATA.bin"});
  FilePresenter p(dir, &browser);
  p.setShowItemstype(FilePresenter::kShowIcons);
  const Sections plain = listed(p);

  std::thread([&] { p.searchThread("data"); }).join();
  EXPECT_TRUE(p.isSearchResult());
  EXPECT_EQ(browser.reloads, 1);
  EXPECT_EQ(browser.restored, std::vector<bool>{true});
  EXPECT_EQ(listed(p), (Sections{{dir + "/data.txt", dir + "/deep/DATA.bin"}}));
  // A listing while the hits show does not bring the folder back.
  EXPECT_EQ(listed(p).front().size(), 2u);

  std::thread([&] { p.searchThread(""); }).join();
  EXPECT_FALSE(p.isSearchResult());
  EXPECT_EQ(listed(p), plain);
}

TEST_F(FileListModel, CancelledSearchChangesNothing) {
  const std::string dir = folder("c", {"data.txt", "other.txt"});
  FilePresenter p(dir, &browser);
  p.setShowItemstype(FilePresenter::kShowIcons);
  const Sections plain = listed(p);
  std::thread([&] {
    CancellationToken token;
    token.cancel();
    CurrentCancellationScope scope(token);
    p.searchThread("data");
  }).join();
  EXPECT_FALSE(p.isSearchResult());
  EXPECT_EQ(browser.reloads, 0);
  EXPECT_TRUE(browser.restored.empty());
  EXPECT_EQ(listed(p), plain);
}

TEST_F(FileListModel, ChangedCountTellsTheParentOnce) {
  const std::string dir = folder("p/q", {"one"});
  std::vector<std::string> told;
  auto token = NotificationCenter::defaultCenter().addObserver(
      notifications::HBFileDirectoryChangeToParentNotification,
      [&](const NotificationCenter::Notification& n) {
        told.push_back(std::any_cast<std::string>(n.object));
      });
  FilePresenter p(dir, &browser);
  p.configureSections();  // the first listing has nothing to compare with
  p.configureSections();
  writeFile(dir + "/two", "");
  p.configureSections();
  p.configureSections();
  NotificationCenter::defaultCenter().removeObserver(token);
  EXPECT_EQ(told, std::vector<std::string>{"/p"});
}

TEST_F(FileListModel, OrderSettingAndItsPicker) {
  EXPECT_EQ(CommonUtil::getFileDisplayType(), 0);
  defaults()->setObject(CommonUtil::kFileTypeOrderKey, "2");
  EXPECT_EQ(FilePresenter(root().string(), nullptr).displayType(), 2);

  int posts = 0;
  auto token = NotificationCenter::defaultCenter().addObserver(
      notifications::HBFileOrderTypeChangeNotication,
      [&](const NotificationCenter::Notification&) { ++posts; });
  PickFileOrderType picker;
  EXPECT_EQ(picker.rows().size(), 4u);
  picker.didSelectRow(3);
  EXPECT_EQ(defaults()->stringForKey(CommonUtil::kFileTypeOrderKey), "3");
  picker.didSelectRow(9);
  EXPECT_EQ(picker.selectedRow(), 0);
  NotificationCenter::defaultCenter().removeObserver(token);
  EXPECT_EQ(posts, 2);

  defaults()->setObject(CommonUtil::kShowItemsOptionsKey, 1);
  EXPECT_EQ(CommonUtil::getShowItemsOptionsValue(0), 1);
  defaults()->setObject(CommonUtil::kShowItemsOptionsKey, 7);
  EXPECT_EQ(CommonUtil::getShowItemsOptionsValue(0), 0);
}

TEST_F(FileListModel, TreeOfItemsStopsAtLinks) {
  const std::string dir = folder("tree", {"b.txt", ".DS_Store", "sub/", "sub/c.txt"});
  fs::create_directory_symlink(dir, dir + "/sub/loop");
  FileListItem top(dir);
  top.setIdentifier("top");
  std::vector<std::string> seen;
  FileUtil::recuriseFileModelList(top, [&](FileListItem& item) { seen.push_back(item.path()); });
  EXPECT_EQ(seen, (std::vector<std::string>{dir + "/b.txt", dir + "/sub", dir + "/sub/c.txt",
                                            dir + "/sub/loop"}));
  ASSERT_EQ(top.childrens().size(), 2u);
  const auto& sub = *top.childrens()[1];
  EXPECT_TRUE(sub.isDirectory());
  EXPECT_EQ(sub.parent(), &top);
  EXPECT_EQ(static_cast<const FileListItem&>(sub).parentid(), "top");
  EXPECT_FALSE(sub.childrens()[1]->isDirectory());  // the link is a leaf
  EXPECT_LT(top.childrens()[0]->compare(sub), 0);
  EXPECT_EQ(FileListItem(dir + "/b.txt"), FileListItem(dir + "/b.txt"));
}

TEST(OrderedGroupItems, GroupsStaySortedAndAKeyHoldsOneItem) {
  struct Row {
    std::string id;
    std::string group;
    int rank;
  };
  OrderedGroupItems<Row, std::string, std::string> g(
      [](const Row& r) { return r.id; }, std::greater<std::string>(),
      [](const Row& r) { return r.group; },
      [](const Row& a, const Row& b) { return a.rank < b.rank; });
  EXPECT_FALSE(g.getFrist().has_value());
  g.addObject({"x", "a", 3});
  g.addObject({"y", "a", 1});
  g.addObject({"z", "b", 2});
  EXPECT_EQ(g.groupKeys(), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(g.itemForIndexPath(1, 0)->id, "y");
  EXPECT_EQ(g.getFrist()->id, "z");
  EXPECT_EQ(g.getLast()->id, "x");

  // Re-adding "z" under another group moves it and drops the emptied group.
  g.addObject({"z", "a", 2});
  EXPECT_EQ(g.count(), 1u);
  std::vector<std::string> ids;
  for (const auto& r : g.childItemsByGroupKey("a")) ids.push_back(r.id);
  EXPECT_EQ(ids, (std::vector<std::string>{"y", "z", "x"}));

  g.removeObjectForKey({"y", "a", 1});
  EXPECT_FALSE(g.objectForKey("y").has_value());
  EXPECT_EQ(g.objects().size(), 2u);
  g.removeObjectByGroupKey("a");
  EXPECT_EQ(g.count(), 0u);
  EXPECT_TRUE(g.items().empty());
}

}  // namespace
}  // namespace harbor
