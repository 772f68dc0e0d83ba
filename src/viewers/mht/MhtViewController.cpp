#include "viewers/mht/MhtViewController.h"

#include <fstream>
#include <iterator>

#include "filemanager/FileUtil.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/OperationQueue.h"
#include "platform/Strings.h"
#include "viewers/mht/MhtFormatParser.h"

namespace harbor {

std::function<std::string()> MhtHooks::browserFolder;

namespace {

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

std::shared_ptr<MhtViewController> MhtViewController::instanceWithPath(const std::string& path,
                                                                       IMhtView* view) {
  return std::shared_ptr<MhtViewController>(new MhtViewController(path, view));
}

MhtViewController::MhtViewController(std::string path, IMhtView* view)
    : _filePath(std::move(path)), _view(view) {}

MhtViewController::~MhtViewController() {
  if (_currentThread) _currentThread->cancel();
}

void MhtViewController::setLoading(bool loading) {
  _loading = loading;
  if (!_view) return;
  _view->setBusy(loading);
  _view->setActionButtonHidden(loading);
}

void MhtViewController::viewDidLoad() {
  if (_view) _view->setTitle(FileUtil::getFileName(_filePath));
  setLoading(true);
  std::weak_ptr<MhtViewController> weak = weak_from_this();
  const std::string path = _filePath;
  _currentThread = CancellableThread::startDetached([weak, path] {
    // Only one archive lives on disk: the last one shown goes first.
    FileUtil::deleteFile(MhtFormatParser::mhtTempDirectory());
    auto parser = MhtFormatParser::instanceWithFileURL(path);
    const std::string root = parser->parser();
    std::string data;
    if (!root.empty() && !isCurrentThreadCancelled()) data = readAll(root);
    MainQueue::shared().post([weak, parser, root, data = std::move(data)] {
      auto self = weak.lock();
      if (!self || !self->_currentThread || self->_currentThread->isCancelled()) return;
      self->setLoading(false);
      // A failure leaves the page empty, with nothing to say.
      if (root.empty() || !parser->rootFile()) return;
      self->_tempPath = parser->tempRootPath();
      const auto& rootFile = parser->rootFile();
      if (self->_view)
        self->_view->loadData(data, rootFile->_filetype, rootFile->_charset,
                              "file://" + rootFile->fullFolderPath() + "/");
    });
  });
}

void MhtViewController::close() {
  if (_currentThread) _currentThread->cancel();
}

void MhtViewController::actionButtonPressed() {
  if (_loading || !_view) return;
  _actionSheet = true;
  std::weak_ptr<MhtViewController> weak = weak_from_this();
  ScreenSheet sheet;
  sheet.tag = kTagAction;
  sheet.rows = {localizedString("Convert to source files"), localizedString("Cancel")};
  _view->showSheet(sheet, [weak](int row) {
    auto self = weak.lock();
    if (!self) return;
    self->_actionSheet = false;
    if (row == 0) self->convertToSourceFiles();
  });
}

std::string MhtViewController::convertToSourceFiles() {
  if (_tempPath.empty() || !FileUtil::isDirectoryFilePath(_tempPath)) return {};
  std::string folder = MhtHooks::browserFolder ? MhtHooks::browserFolder() : std::string();
  if (folder.empty()) folder = FileUtil::documentDirectory();
  std::string name = FileUtil::getFileNameNoExtension(FileUtil::getFileName(_filePath));
  if (name.empty()) name = FileUtil::getFileName(_filePath);
  const std::string target = FileUtil::getCreateFolderName(folder, name);
  if (!FileUtil::copyItem(_tempPath, target, nullptr)) {
    HB_LOG("MhtViewController", "cannot copy " + _tempPath + " to " + target);
    if (_view) _view->showMessage("Failure", localizedString("Failure"));
    return {};
  }
  std::string saved = localizedString("Save the file to ...");
  if (saved.size() >= 3 && saved.compare(saved.size() - 3, 3, "...") == 0)
    saved.resize(saved.size() - 3);
  if (_view)
    _view->showMessage("Save the file to ...", saved + FileUtil::getDocumentRelativePath(target));
  return target;
}

}  // namespace harbor
