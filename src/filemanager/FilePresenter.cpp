#include "filemanager/FilePresenter.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "filemanager/CaseFold.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/FilePropertyTotalFiles.h"
#include "filemanager/FileUtil.h"
#include "filemanager/GlobalObject.h"
#include "filemanager/SectionUtils.h"
#include "platform/Cancellation.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"

namespace harbor {
namespace {

std::string_view lastComponent(std::string_view path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string normalized(const std::string& path) {
  std::string p = std::filesystem::path(path).lexically_normal().string();
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  return p;
}

// Items with a key computed once each, so a sort never recomputes it per
// comparison.
template <typename Key>
struct Keyed {
  Key key;
  FilePresenter::Item item;
};

std::vector<std::string> pathsOf(std::vector<FilePresenter::Item>& items) {
  std::vector<std::string> out;
  out.reserve(items.size());
  for (auto& item : items) out.push_back(std::move(item.path));
  return out;
}

// The order an entry of the listing would have as plain text.
void sortByPath(std::vector<FilePresenter::Item>& items) {
  std::sort(items.begin(), items.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
}

}  // namespace

std::unique_ptr<FilePresenter> FilePresenter::instanceWithPath(const std::string& path,
                                                               IFilePresenter* delegate) {
  return std::make_unique<FilePresenter>(path, delegate);
}

FilePresenter::FilePresenter(const std::string& path, IFilePresenter* delegate)
    : _displayType(CommonUtil::getFileDisplayType()), _path(path), _delegate(delegate) {
  const std::string relative = FileUtil::getDocumentRelativePath(normalized(path));
  if (!relative.empty()) {
    _folderPath = FileUtil::getFileName(relative);
    _parentPath = FileUtil::getFileDirectory(relative);
  }
}

std::string FilePresenter::fullRelativePath() const {
  if (_parentPath.empty()) return _folderPath;
  if (_parentPath.back() == '/') return _parentPath + _folderPath;
  return _parentPath + "/" + _folderPath;
}

std::string FilePresenter::fullFolderPath() const {
  const std::string relative = fullRelativePath();
  const std::string root = FileUtil::documentDirectory();
  if (relative.empty()) return root;
  return root + (relative.front() == '/' ? "" : "/") + relative;
}

bool FilePresenter::isSearchResult() const {
  std::lock_guard lock(searchMutex_);
  return _isSearchResult;
}

bool FilePresenter::isSearchTruncated() const {
  std::lock_guard lock(searchMutex_);
  return _isSearchTruncated;
}

bool FilePresenter::isOrderAsc() const {
  return _delegate ? _delegate->isOrderAsc() : true;
}

// ---- Listing ---------------------------------------------------------------

void FilePresenter::listFolder(std::vector<Item>& items, bool withAttributes) {
  std::vector<CommonUtil::FolderEntry> entries;
  const ExtensionMap* filter = _fileterType ? &*_fileterType : nullptr;
  // An unreadable folder lists as empty, without a message.
  CommonUtil::entriesInCurrentFolder(_path, entries, true, filter, withAttributes);
  const bool root = isRoot();
  const std::string base = _path.empty() || _path.back() == '/' ? _path : _path + "/";
  items.reserve(entries.size());
  for (auto& entry : entries) {
    // Incoming files wait in "Inbox" at the root until they are imported.
    if (root && entry.name == "Inbox") continue;
    if (FileUtil::isIgnoredName(entry.name)) continue;
    items.push_back(Item{base + entry.name, entry.isDirectory, entry.size, entry.modified});
  }
}

std::vector<FilePresenter::Item> FilePresenter::itemsForPaths(
    const std::vector<std::string>& paths) {
  std::vector<Item> items;
  items.reserve(paths.size());
  for (const auto& path : paths) {
    Item item{path};
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0) {
      item.isDirectory = S_ISDIR(st.st_mode);
      item.size = static_cast<std::uint64_t>(st.st_size);
      item.modified = FileUtil::getFileMidified(path);
      struct stat target;
      if (S_ISLNK(st.st_mode) && ::stat(path.c_str(), &target) == 0) {
        item.isDirectory = S_ISDIR(target.st_mode);
      }
    }
    items.push_back(std::move(item));
  }
  return items;
}

void FilePresenter::configureSections() {
  const bool attributes = _displayType == kOrderDate || _displayType == kOrderSize;
  std::vector<Item> items;
  bool searching = false;
  std::vector<std::string> hits;
  {
    std::lock_guard lock(searchMutex_);
    searching = _isSearchResult;
    if (searching) {
      if (!_searchArray.empty()) hits = _searchArray.front();
    } else {
      _searchArray.clear();
    }
  }
  if (searching) {
    items = itemsForPaths(hits);
  } else {
    listFolder(items, attributes);
    // A changed count makes the parent browser reload, so its sizes and
    // counts stay true.
    if (hasListing_ && items.size() != _fileNumber && !_parentPath.empty()) {
      NotificationCenter::defaultCenter().post(
          notifications::HBFileDirectoryChangeToParentNotification, _parentPath);
    }
  }
  _fileNumber = items.size();
  hasListing_ = true;
  sortAndGroup(std::move(items));
}

void FilePresenter::sortAndGroup(std::vector<Item> items) {
  // Entries that compare equal keep the order of their paths, so every
  // listing of the same folder comes out the same.
  sortByPath(items);
  switch (_displayType) {
    case kOrderSize:
      return loadFileSize(std::move(items));
    case kOrderType:
      return loadType(std::move(items));
    case kOrderDate:
      return loadDate(std::move(items));
    default:
      break;
  }
  if (_showItemstype == kShowList) return loadNameOrder(std::move(items));

  // Icon view by name: one section, no titles, case ignored.
  _collation.reset();
  std::vector<Keyed<std::string>> keyed;
  keyed.reserve(items.size());
  for (auto& item : items) keyed.push_back({foldCase(item.path), std::move(item)});
  std::stable_sort(keyed.begin(), keyed.end(),
                   [](const auto& a, const auto& b) { return a.key < b.key; });
  std::vector<std::string> section;
  section.reserve(keyed.size());
  for (auto& k : keyed) section.push_back(std::move(k.item.path));
  if (!isOrderAsc()) std::reverse(section.begin(), section.end());
  _sectionsArray.assign(1, std::move(section));
}

void FilePresenter::dropEmptySections() {
  for (std::size_t i = _sectionsArray.size(); i-- > 0;) {
    if (!_sectionsArray[i].empty()) continue;
    _sectionsArray.erase(_sectionsArray.begin() + static_cast<std::ptrdiff_t>(i));
    if (_collation && i < _collation->size()) {
      _collation->erase(_collation->begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
}

void FilePresenter::loadNameOrder(std::vector<Item> items) {
  // Plain, case-sensitive order of the full paths; the items come sorted so.
  std::vector<std::string> paths = pathsOf(items);
  const bool ascending = isOrderAsc();
  auto collation = IndexedCollation::currentCollation();
  _sectionsArray = SectionUtils::partitionObjects(
      paths, *collation, [](const std::string& p) { return lastComponent(p); });
  std::vector<std::string> titles = collation->sectionTitles();
  if (!ascending) {
    std::reverse(titles.begin(), titles.end());
    ArrayUtils::reverseSectionsArray(_sectionsArray);
  }
  _collation = std::move(titles);
  dropEmptySections();
}

void FilePresenter::loadDate(std::vector<Item> items) {
  _collation.reset();
  const bool ascending = isOrderAsc();
  std::stable_sort(items.begin(), items.end(), [ascending](const Item& a, const Item& b) {
    return ascending ? a.modified < b.modified : b.modified < a.modified;
  });
  _sectionsArray.clear();
  if (!items.empty()) _sectionsArray.push_back(pathsOf(items));
}

void FilePresenter::loadFileSize(std::vector<Item> items) {
  _collation.reset();
  const bool ascending = isOrderAsc();
  std::stable_sort(items.begin(), items.end(), [ascending](const Item& a, const Item& b) {
    return ascending ? a.size < b.size : b.size < a.size;
  });
  _sectionsArray.clear();
  if (!items.empty()) _sectionsArray.push_back(pathsOf(items));
}

void FilePresenter::loadType(std::vector<Item> items) {
  _collation = std::vector<std::string>{localizedString("Dir"), localizedString("Docs"),
                                        localizedString("Media"), localizedString("Img"), "#"};
  const bool ascending = isOrderAsc();
  if (!ascending) std::reverse(items.begin(), items.end());

  struct TypeKey {
    std::string extension;  // folded
    std::string name;       // folded
  };
  std::vector<std::vector<Keyed<TypeKey>>> sections(5);
  const auto& docs = GlobalObject::getSupportDocTypes();
  const auto& media = GlobalObject::getSupportMediaTypes();
  const auto& images = GlobalObject::getSupportImageTypes();
  for (auto& item : items) {
    const std::string_view name = lastComponent(item.path);
    const std::string extension = FileUtil::getFileExtension(name);
    std::size_t section = 4;
    if (item.isDirectory) {
      section = 0;
    } else {
      const std::string lower = toLower(extension);
      if (docs.count(lower)) {
        section = 1;
      } else if (media.count(lower)) {
        section = 2;
      } else if (images.count(lower)) {
        section = 3;
      }
    }
    sections[section].push_back({{foldCase(extension), foldCase(name)}, std::move(item)});
  }
  // Extension first, then name, both ignoring case.
  auto before = [](const TypeKey& a, const TypeKey& b) {
    if (a.extension != b.extension) return a.extension < b.extension;
    return a.name < b.name;
  };
  _sectionsArray.assign(5, {});
  for (std::size_t i = 0; i < sections.size(); ++i) {
    std::stable_sort(sections[i].begin(), sections[i].end(), [&](const auto& a, const auto& b) {
      return ascending ? before(a.key, b.key) : before(b.key, a.key);
    });
    _sectionsArray[i].reserve(sections[i].size());
    for (auto& k : sections[i]) _sectionsArray[i].push_back(std::move(k.item.path));
  }
  dropEmptySections();
}

void FilePresenter::loadNameOrderSection(const std::vector<std::string>& paths) {
  auto items = itemsForPaths(paths);
  sortByPath(items);
  loadNameOrder(std::move(items));
}

void FilePresenter::loadDateSection(const std::vector<std::string>& paths) {
  auto items = itemsForPaths(paths);
  sortByPath(items);
  loadDate(std::move(items));
}

void FilePresenter::loadFileSizeSection(const std::vector<std::string>& paths) {
  auto items = itemsForPaths(paths);
  sortByPath(items);
  loadFileSize(std::move(items));
}

void FilePresenter::loadTypeSection(const std::vector<std::string>& paths) {
  auto items = itemsForPaths(paths);
  sortByPath(items);
  loadType(std::move(items));
}

// ---- Search ----------------------------------------------------------------

void FilePresenter::searchThread(const std::string& searchText) {
  const bool searching = !searchText.empty();
  Sections found;
  bool truncated = false;
  if (searching) {
    FilePropertySearchFiles search({_path}, searchText);
    search.setIsContainsSelf(true);
    found.push_back(search.execute());
    truncated = search.isTruncated();
  }
  // A search given up on must not replace what the screen shows.
  if (isCurrentThreadCancelled()) return;
  {
    std::lock_guard lock(searchMutex_);
    _isSearchResult = searching;
    _isSearchTruncated = truncated;
    _searchArray = std::move(found);
  }
  if (_delegate) {
    _delegate->reloadData();
    _delegate->restoreSearchState(true);
  }
}

std::vector<std::string> FilePresenter::searchHits() const {
  std::lock_guard lock(searchMutex_);
  std::vector<std::string> hits;
  for (const auto& section : _searchArray) hits.insert(hits.end(), section.begin(), section.end());
  return hits;
}

void FilePresenter::setSearchHits(std::vector<std::string> hits) {
  std::lock_guard lock(searchMutex_);
  _searchArray.clear();
  _searchArray.push_back(std::move(hits));
}

void FilePresenter::checkFilesExistsAndRemove() {
  std::vector<std::string> hits = searchHits();
  std::erase_if(hits, [](const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) != 0;
  });
  setSearchHits(std::move(hits));
}

// ---- Selections ------------------------------------------------------------

std::vector<std::string>& FilePresenter::passwordRows() {
  if (!_passwordRows) _passwordRows = std::make_unique<std::vector<std::string>>();
  return *_passwordRows;
}

std::vector<std::string>& FilePresenter::selectedRows() {
  if (!_selectedRows) _selectedRows = std::make_unique<std::vector<std::string>>();
  return *_selectedRows;
}

std::set<std::string>& FilePresenter::pickSelectedRows() {
  if (!_pickSelectedRows) _pickSelectedRows = std::make_unique<std::set<std::string>>();
  return *_pickSelectedRows;
}

void FilePresenter::clearPickSelectedRows() {
  if (_pickSelectedRows) _pickSelectedRows->clear();
}

std::vector<std::string> FilePresenter::pickItems() const {
  std::vector<std::string> out;
  if (!_pickSelectedRows) return out;
  for (const auto& section : _sectionsArray) {
    for (const auto& path : section) {
      if (_pickSelectedRows->count(path)) out.push_back(path);
    }
  }
  return out;
}

void FilePresenter::clearSelectedItems() {
  if (_selectedRows) _selectedRows->clear();
}

void FilePresenter::addSelectedFirstObject(const std::string& path) {
  selectedRows().assign(1, path);
}

void FilePresenter::addSelectedObject(const std::string& path) {
  selectedRows().push_back(path);
}

}  // namespace harbor
