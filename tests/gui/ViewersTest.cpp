// The viewers on Qt's offscreen platform: what the user sees and where each
// byte of a local document came from.
#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QMediaPlayer>
#include <QSlider>
#include <QTest>
#include <QToolButton>

#include "ViewerSamples.h"
#include "editor/EditorBaseController.h"
#include "gui/EditorView.h"
#include "gui/EpubView.h"
#include "gui/ImageView.h"
#include "gui/MainWindow.h"
#include "gui/MediaView.h"
#include "gui/MhtView.h"
#include "gui/PdfView.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/WebPageView.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

namespace fs = std::filesystem;

class ViewersTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    registerViews();
  }

  static bool waitLoaded(WebPageView& view) {
    if (!view.web()) return false;  // the engine's plugin did not load
    return QTest::qWaitFor([&] { return view.isLoaded(); }, 60000);
  }

  // Runs a script in the page and waits for its answer.
  static QVariant evaluate(WebPageView& view, const QString& script) {
    QVariant result;
    bool done = false;
    view.web()->runJavaScript(script, [&](const QVariant& value) {
      result = value;
      done = true;
    });
    if (!QTest::qWaitFor([&] { return done; }, 30000)) return {};
    return result;
  }
};

TEST_F(ViewersTest, EpubOpensAtFirstSpineChapterAndPagesThroughTheSpine) {
  const fs::path book = root() / "tales.epub";
  samples::writeEpub(book, 3);
  EpubView view(book.string());
  view.resize(800, 600);
  view.show();
  ASSERT_EQ(view.chapters().size(), 3u);
  ASSERT_TRUE(waitLoaded(view));
  EXPECT_EQ(view.chapter(), 0);
  EXPECT_TRUE(view.web()->url().path().endsWith(QLatin1String("text/ch1.xhtml")))
      << view.web()->url().toString().toStdString();
  EXPECT_EQ(evaluate(view, QStringLiteral("document.querySelector('h1').textContent")).toString(),
            QStringLiteral("Chapter 1"));
  auto* previous = view.findChild<QAction*>(QStringLiteral("previous"));
  auto* next = view.findChild<QAction*>(QStringLiteral("next"));
  ASSERT_TRUE(previous && next);
  EXPECT_FALSE(previous->isEnabled());

  // The first chapter's picture on the network was stopped, and the user
  // is offered to load it.
  EXPECT_TRUE(QTest::qWaitFor([&] { return view.web()->blockedCount() > 0; }, 10000));
  auto* remote = view.findChild<QAction*>(QStringLiteral("loadRemote"));
  ASSERT_TRUE(remote);
  EXPECT_TRUE(QTest::qWaitFor([&] { return remote->isVisible(); }, 5000));

  next->trigger();
  ASSERT_TRUE(waitLoaded(view));
  EXPECT_EQ(view.chapter(), 1);
  EXPECT_TRUE(view.web()->url().path().endsWith(QLatin1String("text/ch2.xhtml")));
  EXPECT_EQ(evaluate(view, QStringLiteral("document.querySelector('h1').textContent")).toString(),
            QStringLiteral("Chapter 2"));

  // The table of contents jumps, and names chapters by their own titles.
  view.contents()->activated(2);
  ASSERT_TRUE(waitLoaded(view));
  EXPECT_EQ(view.chapter(), 2);
  EXPECT_FALSE(next->isEnabled());
  EXPECT_TRUE(QTest::qWaitFor(
      [&] { return view.contents()->itemText(2) == QLatin1String("Chapter 3"); }, 10000));
}

TEST_F(ViewersTest, BrokenEpubShowsNoChapters) {
  const fs::path book = root() / "broken.epub";
  test::writeFile(book, "PK\x03\x04 not really a book");
  EpubView view(book.string());
  EXPECT_TRUE(view.chapters().empty());
  EXPECT_EQ(view.contents()->count(), 0);
}

TEST_F(ViewersTest, MhtPartsComeFromTheSchemeHandlerNotTheNetwork) {
  const fs::path page = root() / "harbour.mht";
  samples::writeMht(page);
  MainWindow window;
  const int servedBefore = MhtSchemeHandler::servedCount();
  MhtView view(page.string(), window);
  view.resize(800, 600);
  view.show();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !view.rootUrl().isEmpty(); }, 30000))
      << "the archive was not unpacked";
  ASSERT_TRUE(waitLoaded(view));
  EXPECT_EQ(view.rootUrl().scheme(), QLatin1String("applewebdata"));

  // The picture really shows: it has its pixels.
  EXPECT_TRUE(QTest::qWaitFor(
      [&] {
        return evaluate(view, QStringLiteral("document.getElementById('boat').naturalWidth"))
                   .toInt() == 120;
      },
      20000));
  const QString src =
      evaluate(view, QStringLiteral("document.getElementById('boat').src")).toString();
  EXPECT_TRUE(src.startsWith(QLatin1String("applewebdata:"))) << src.toStdString();
  EXPECT_GE(MhtSchemeHandler::servedCount() - servedBefore, 2);
  for (const QString& url : view.web()->requested()) {
    EXPECT_FALSE(url.startsWith(QLatin1String("http"))) << url.toStdString();
  }

  // Search runs in the page.
  view.find(QStringLiteral("high water"));
  EXPECT_TRUE(QTest::qWaitFor([&] { return view.lastFindMatches() == 1; }, 10000));
}

TEST_F(ViewersTest, SchemeHandlerServesNothingOutsideTheArchiveFolder) {
  const fs::path secret = home() / "secret.txt";
  test::writeFile(secret, "private");
  WebPageView view(std::vector<std::string>{}, 0);
  view.load(QUrl(QStringLiteral("applewebdata:") + QString::fromStdString(secret)));
  ASSERT_TRUE(waitLoaded(view));
  EXPECT_NE(
      evaluate(view, QStringLiteral("document.body ? document.body.innerText : ''")).toString(),
      QStringLiteral("private"));
}

TEST_F(ViewersTest, PdfShowsItsPageCountAndPages) {
  const fs::path pdf = root() / "notes.pdf";
  samples::writePdf(pdf, 3);
  PdfView view(pdf.string());
  view.resize(700, 800);
  view.show();
  ASSERT_TRUE(QTest::qWaitFor([&] { return view.pageCount() == 3; }, 10000));
  EXPECT_EQ(view.pagesLabel()->text(), QStringLiteral("1 / 3"));
  view.findChild<QToolButton*>(QStringLiteral("next"))->click();
  EXPECT_EQ(view.currentPage(), 1);
  EXPECT_EQ(view.pagesLabel()->text(), QStringLiteral("2 / 3"));

  const fs::path bad = root() / "bad.pdf";
  test::writeFile(bad, "%PDF-1.4 truncated");
  PdfView broken(bad.string());
  EXPECT_EQ(broken.pageCount(), 0);
  EXPECT_FALSE(broken.findChild<QToolButton*>(QStringLiteral("next"))->isEnabled());
}

TEST_F(ViewersTest, ImagesPageThroughTheFolderList) {
  std::vector<std::string> files;
  for (int i = 0; i < 3; ++i) {
    const fs::path p = root() / ("photo" + std::to_string(i) + ".png");
    samples::writePng(p, 40 + i, 30, 0x336699u + static_cast<unsigned>(i));
    files.push_back(p.string());
  }
  const fs::path broken = root() / "broken.png";
  test::writeFile(broken, "not an image");
  files.push_back(broken.string());

  ImageView view(files, 1);
  view.resize(600, 400);
  view.show();
  auto* previous = view.findChild<QToolButton*>(QStringLiteral("previous"));
  auto* next = view.findChild<QToolButton*>(QStringLiteral("next"));
  auto* position = view.findChild<QLabel*>(QStringLiteral("position"));
  EXPECT_EQ(view.current(), 1u);
  EXPECT_EQ(position->text(), QStringLiteral("2 / 4"));
  EXPECT_TRUE(view.findChild<QLabel*>(QStringLiteral("imageName"))->text().contains("41"));
  next->click();
  EXPECT_EQ(view.current(), 2u);
  QTest::keyClick(&view, Qt::Key_Left);
  QTest::keyClick(&view, Qt::Key_Left);
  EXPECT_EQ(view.current(), 0u);
  EXPECT_FALSE(previous->isEnabled());
  QTest::keyClick(&view, Qt::Key_Left);
  EXPECT_EQ(view.current(), 0u);

  // A file that is not an image is a page of its own that says so.
  view.showImage(3);
  EXPECT_FALSE(view.hasImage());
  EXPECT_FALSE(next->isEnabled());
  next->click();
  EXPECT_EQ(view.current(), 3u);
}

TEST_F(ViewersTest, MediaPlaysPausesAndSeeks) {
  const fs::path tone = root() / "tone.wav";
  samples::writeWav(tone, 20);
  MediaView view({tone.string()}, 0);
  view.show();
  QMediaPlayer* player = view.player();
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return player->duration() > 0 || player->error() != QMediaPlayer::NoError; }, 20000));
  if (player->error() != QMediaPlayer::NoError)
    GTEST_SKIP() << "no media backend here: " << player->errorString().toStdString();
  EXPECT_EQ(player->playbackState(), QMediaPlayer::PlayingState);
  auto* play = view.findChild<QToolButton*>(QStringLiteral("play"));
  play->click();
  EXPECT_TRUE(
      QTest::qWaitFor([&] { return player->playbackState() == QMediaPlayer::PausedState; }, 5000));
  // A page step along the bar moves the play position with it.
  auto* seek = view.findChild<QSlider*>(QStringLiteral("seek"));
  const qint64 before = player->position();
  seek->triggerAction(QAbstractSlider::SliderPageStepAdd);
  EXPECT_TRUE(QTest::qWaitFor([&] { return player->position() >= before + 1500; }, 5000))
      << player->position();
  play->click();
  EXPECT_TRUE(
      QTest::qWaitFor([&] { return player->playbackState() == QMediaPlayer::PlayingState; }, 5000));
}

TEST_F(ViewersTest, WindowOpensEachRouteInItsViewer) {
  const fs::path pdf = root() / "a.pdf";
  samples::writePdf(pdf, 1);
  const fs::path png = root() / "a.png";
  samples::writePng(png, 10, 10, 0xff0000u);
  MainWindow window;
  window.openFiles(ScreenRoute::Pdf, {pdf.string()}, 0);
  EXPECT_TRUE(qobject_cast<PdfView*>(window.top()));
  window.openFiles(ScreenRoute::Image, {png.string()}, 0);
  EXPECT_TRUE(qobject_cast<ImageView*>(window.top()));
  EXPECT_EQ(window.depth(), 2);
  EXPECT_TRUE(MainWindow::canOpen(ScreenRoute::Preview));
  EXPECT_TRUE(MainWindow::canOpen(ScreenRoute::Mht));
  EXPECT_TRUE(MainWindow::canOpen(ScreenRoute::Media));
}

TEST_F(ViewersTest, EditorPreviewAndCommandLineFilesReachTheirViewers) {
  const fs::path html = root() / "index.html";
  test::writeFile(html, "<html><body><h1>Preview me</h1></body></html>");
  MainWindow window;
  window.setRoot(makeEmptyRoot(&window), QStringLiteral("Documents"));
  EditorView* editor = window.openEditor(html.string());
  ASSERT_TRUE(QTest::qWaitFor([&] { return !editor->controller().isLoading(); }, 20000));
  EXPECT_TRUE(editor->supportsRoute(ScreenRoute::Preview));
  editor->controller().viewText();
  auto* preview = qobject_cast<WebPageView*>(window.top());
  ASSERT_TRUE(preview) << "the preview did not open";
  ASSERT_TRUE(waitLoaded(*preview));
  EXPECT_EQ(evaluate(*preview, QStringLiteral("document.querySelector('h1').textContent")),
            QStringLiteral("Preview me"));

  // Files named at launch open as the browser would open them.
  const fs::path pdf = root() / "doc.pdf";
  samples::writePdf(pdf, 2);
  openFromCommandLine(window, pdf.string());
  EXPECT_TRUE(qobject_cast<PdfView*>(window.top()));
  const fs::path mht = root() / "page.mht";
  samples::writeMht(mht);
  openFromCommandLine(window, mht.string());
  EXPECT_TRUE(qobject_cast<MhtView*>(window.top()));
  openFromCommandLine(window, (root() / "new.txt").string());
  EXPECT_TRUE(qobject_cast<EditorView*>(window.top()));
}

}  // namespace
}  // namespace harbor::gui
