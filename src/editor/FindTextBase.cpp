#include "editor/FindTextBase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <functional>

#include "editor/ByteScreen.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "encoding/FileBytes.h"
#include "encoding/StringEncodings.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"

namespace harbor {
namespace {

std::string asciiNeedle(const FindTextOptions& options);

// A file as a search takes it: plain ASCII may stay as its bytes (`ascii`,
// in the worker's read buffer or in `mapped`), other text is decoded.
struct ProjectFile {
  std::optional<FileBytes> mapped;
  std::string_view ascii;
  std::u16string text;
  bool isAscii = false;
};

// The folder of the last file a worker opened, kept open: files of one
// folder come in runs, and opening a name in an open folder skips walking
// the whole path again.
struct FolderCache {
  std::string path;
  int fd = -1;
  FolderCache() = default;
  FolderCache(const FolderCache&) = delete;
  FolderCache& operator=(const FolderCache&) = delete;
  ~FolderCache() {
    if (fd >= 0) ::close(fd);
  }
  // Opens `path` for reading, through the cached folder where it can.
  int open(const std::string& file, int flags);
};

// False when there is nothing to search: unreadable (`error` set), binary,
// undecodable, or ruled out by `needle`. `folders` may be null.
bool readProjectFile(const std::string& path, const FindTextOptions& options,
                     std::string_view needle, bool keepAscii, ProjectFile& file, Error* error,
                     FolderCache* folders = nullptr);

}  // namespace

// ---- FindTextBase ------------------------------------------------------------------

std::shared_ptr<FindTextBase> FindTextBase::instanceWithOptions(
    std::shared_ptr<FindTextOptions> options, IFindTextBase* delegate) {
  return makeFinder<FindTextBase>(std::move(options), delegate);
}

FindTextBase::~FindTextBase() {
  if (cancelObserver_) NotificationCenter::defaultCenter().removeObserver(cancelObserver_);
}

void FindTextBase::initQueue() {
  queue = std::make_unique<OperationQueue>(kMaxWorkers, "FindText");
  resetItemBudget();
  std::weak_ptr<FindTextBase> weak = weak_from_this();
  cancelObserver_ = NotificationCenter::defaultCenter().addObserver(
      FileFindReplaceCancelNotification, [weak](const NotificationCenter::Notification&) {
        if (auto self = weak.lock()) self->cancel();
      });
}

void FindTextBase::resetItemBudget() {
  budget_ = std::make_unique<ItemMemoryBudget>(FindTextInString::itemMemoryLimit());
}

void FindTextBase::cancel() {
  std::lock_guard lock(mutex_);
  cancelled_ = true;
  if (queue) queue->cancelAllOperations();
}

bool FindTextBase::isCancelledSearch() const {
  std::lock_guard lock(mutex_);
  return cancelled_;
}

bool FindTextBase::addWorker(std::shared_ptr<Operation> worker) {
  // Under the lock, so a cancel either sees this worker queued or stops the
  // loop before it.
  std::lock_guard lock(mutex_);
  if (cancelled_) return false;
  worker->setQueuePriority(QueuePriority::VeryHigh);
  queue->addOperation(std::move(worker));
  return true;
}

void FindTextBase::finishWhenDone() {
  queue->waitUntilAllOperationsAreFinished();
  executeFinished();
}

void FindTextBase::onFinished(std::vector<FindTextItem>, std::int64_t, const Error* error) {
  std::lock_guard lock(mutex_);
  if (error) _error = *error;
}

void FindTextBase::gatherResults(std::vector<FindTextItem> items, std::int64_t tag,
                                 const Error* error) {
  std::lock_guard lock(mutex_);
  if (error) {
    _error = *error;
    // The hits of all texts share one memory budget: once it is spent the
    // whole search stops.
    if (FindTextInString::isTooManyItemsError(*error)) stopFullLocked();
    return;
  }
  if (items.empty() || full_) return;
  findResultNumber += items.size();
  if (!_tagResults.count(tag)) _resultsObjects.push_back(tag);
  _tagResults[tag] = std::move(items);
}

void FindTextBase::stopFullLocked() {
  full_ = true;
  cancelled_ = true;
  if (queue) queue->cancelAllOperations();
}

// ---- workers ------------------------------------------------------------------------

namespace {

std::size_t countNewLines(std::u16string_view text) {
  std::size_t count = 0, i = 0;
  const char16_t* p = text.data();
#if defined(__SSE2__)
  // Each lane counts down by one per "\n" it sees; lanes are summed before
  // they could wrap.
  const __m128i nl = _mm_set1_epi16(static_cast<short>(u'\n'));
  while (i + 8 <= text.size()) {
    __m128i lanes = _mm_setzero_si128();
    for (std::size_t k = 0; k < 4096 && i + 8 <= text.size(); ++k, i += 8) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
      lanes = _mm_sub_epi16(lanes, _mm_cmpeq_epi16(v, nl));
    }
    alignas(16) std::uint16_t sums[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(sums), lanes);
    for (std::uint16_t s : sums) count += s;
  }
#endif
  for (; i < text.size(); ++i) count += p[i] == u'\n';
  return count;
}

std::size_t countNewLines(std::string_view text) {
  std::size_t count = 0, i = 0;
  const char* p = text.data();
#if defined(__SSE2__)
  // As above with byte lanes, summed every 255 blocks.
  const __m128i nl = _mm_set1_epi8('\n'), zero = _mm_setzero_si128();
  while (i + 16 <= text.size()) {
    __m128i lanes = zero;
    for (std::size_t k = 0; k < 255 && i + 16 <= text.size(); ++k, i += 16) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
      lanes = _mm_sub_epi8(lanes, _mm_cmpeq_epi8(v, nl));
    }
    const __m128i sums = _mm_sad_epu8(lanes, zero);
    count += static_cast<std::size_t>(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
  }
#endif
  for (; i < text.size(); ++i) count += p[i] == '\n';
  return count;
}

// Tags the items and, where asked, numbers their lines in one pass.
template <class Char>
void tagItems(std::vector<FindTextItem>& items, std::basic_string_view<Char> text, std::int64_t tag,
              bool countLines) {
  std::size_t line = 1, at = 0;
  for (auto& item : items) {
    item._tag = tag;
    if (!countLines) continue;
    const std::size_t to = std::min(item._range.location, text.size());
    line += countNewLines(text.substr(at, to - at));
    at = to;
    item._lineNumber = line;
  }
}

// Hands a text's items to the driver, tagged and with their lines numbered
// where asked, or the error that ended its search.
template <class Char>
void deliver(FindTextBase& driver, std::int64_t tag, std::vector<FindTextItem> items,
             const Error& error, std::basic_string_view<Char> text, bool countLines) {
  if (!error.message.empty()) {
    driver.onFinished({}, tag, &error);
    return;
  }
  tagItems(items, text, tag, countLines);
  driver.onFinished(std::move(items), tag, nullptr);
}

}  // namespace

void FindTextOperationBase::report(std::u16string_view text, const Error* readError,
                                   bool countLines) {
  if (!_findTextDelegate) return;
  if (readError) {
    _findTextDelegate->onFinished({}, _tag, readError);
    return;
  }
  Error error;
  std::vector<FindTextItem> items = FindTextInString::findTextItems(
      text, *_findTextOptions, &error, _findTextDelegate->itemBudget());
  deliver(*_findTextDelegate, _tag, std::move(items), error, text, countLines);
}

void FileTextInStringsOperation::main() {
  report(_source, nullptr, false);
}

void FileTextInProjectOperation::searchFile(const std::string& path, std::string_view needle) {
  if (!_findTextDelegate) return;
  // Reused from file to file, and with it the storage of a decoded text up
  // to a size worth keeping.
  thread_local ProjectFile file;
  struct Done {
    ProjectFile& file;
    ~Done() {
      file.mapped.reset();
      if (file.text.capacity() > (std::size_t{4} << 20)) std::u16string().swap(file.text);
    }
  } done{file};
  Error error;
  const bool keepAscii = !_findTextOptions->_isRegex;
  thread_local FolderCache folders;
  if (!readProjectFile(path, *_findTextOptions, needle, keepAscii, file, &error, &folders)) {
    if (!error.message.empty()) report({}, &error, true);
    return;
  }
  if (!file.isAscii) {
    report(file.text, nullptr, true);
    return;
  }
  std::vector<FindTextItem> items = FindTextInString::findTextItemsInAscii(
      file.ascii, *_findTextOptions, &error, _findTextDelegate->itemBudget());
  deliver(*_findTextDelegate, _tag, std::move(items), error, file.ascii, true);
}

void FileTextInProjectOperation::main() {
  const std::string needle = asciiNeedle(*_findTextOptions);
  if (!_files) {
    searchFile(_filePath, needle);
    return;
  }
  // Takes the next few files until none is left (neighbours in the list
  // share a folder); tags are indexes into the list.
  constexpr std::size_t kRun = 8;
  const std::size_t count = _files->size();
  while (!isCancelled()) {
    const std::size_t first = _nextFile->fetch_add(kRun, std::memory_order_relaxed);
    if (first >= count) break;
    for (std::size_t i = first; i < std::min(count, first + kRun) && !isCancelled(); ++i) {
      _tag = static_cast<std::int64_t>(i);
      searchFile((*_files)[i], needle);
    }
  }
}

// ---- FindTextInStrings --------------------------------------------------------------

void FindTextInStrings::execute() {
  resetItemBudget();
  if (_findTextOptions) {
    // Workers share the options read-only from here on.
    FindTextInString::markWordBoundaries(*_findTextOptions);
    const auto& sources = _findTextOptions->_sourceObjects;
    const auto& ids = _findTextOptions->_sourceObjectsId;
    const auto& urls = _findTextOptions->_sourceURLs;
    for (std::size_t i = 0; i < sources.size(); ++i) {
      if (isCurrentThreadCancelled()) break;
      const std::string id = i < ids.size() ? ids[i] : std::string();
      const auto tag = static_cast<std::int64_t>(std::hash<std::string>{}(id));
      {
        std::lock_guard lock(mutex_);
        _tagSource[tag] = i < urls.size() ? urls[i] : std::string();
      }
      auto worker = std::make_shared<FileTextInStringsOperation>();
      worker->_findTextOptions = _findTextOptions;
      worker->_findTextDelegate = this;
      worker->_tag = tag;
      worker->_source = sources[i];
      if (!addWorker(std::move(worker))) break;
    }
  }
  finishWhenDone();
}

void FindTextInStrings::executeFinished() {
  if (_findTextOptions) {
    _findTextOptions->_sourceObjects.clear();
    _findTextOptions->_sourceObjectsId.clear();
  }
  _findTextOptions.reset();
  if (_delegate) _delegate->onFinishFindText(*this);
}

void FindTextInStrings::onFinished(std::vector<FindTextItem> items, std::int64_t tag,
                                   const Error* error) {
  gatherResults(std::move(items), tag, error);
}

const std::vector<FindTextItem>* FindTextInStrings::firstFindResult() const {
  auto it = _tagResults.find(0);
  return it == _tagResults.end() ? nullptr : &it->second;
}

// ---- FileTextInProject --------------------------------------------------------------

void FileTextInProject::execute() {
  resetItemBudget();
  if (_findTextOptions && !_files.empty() && !isCurrentThreadCancelled()) {
    FindTextInString::markWordBoundaries(*_findTextOptions);
    {
      std::lock_guard lock(mutex_);
      for (std::size_t i = 0; i < _files.size(); ++i) {
        _tagSource.emplace_hint(_tagSource.end(), static_cast<std::int64_t>(i), _files[i]);
      }
    }
    // A queued worker per file costs more than searching a small file: the
    // workers instead take the files in turn from one counter.
    nextFile_.store(0);
    const std::size_t workers = std::min<std::size_t>(kMaxWorkers, _files.size());
    for (std::size_t w = 0; w < workers; ++w) {
      auto worker = std::make_shared<FileTextInProjectOperation>();
      worker->_findTextOptions = _findTextOptions;
      worker->_findTextDelegate = this;
      worker->_files = &_files;
      worker->_nextFile = &nextFile_;
      if (!addWorker(std::move(worker))) break;
    }
  }
  finishWhenDone();
}

void FileTextInProject::executeFinished() {
  _findTextOptions.reset();
  if (_delegate) _delegate->onFinishFindText(*this);
}

void FileTextInProject::onFinished(std::vector<FindTextItem> items, std::int64_t tag,
                                   const Error* error) {
  gatherResults(std::move(items), tag, error);
}

const std::vector<FindTextItem>* FileTextInProject::firstFindResult() const {
  auto it = _tagResults.find(0);
  return it == _tagResults.end() ? nullptr : &it->second;
}

namespace {

// The needle as bytes when a file's raw bytes can rule a hit out: an exact,
// literal search for plain ASCII, or the literal start of a regular
// expression. Empty otherwise.
std::string asciiNeedle(const FindTextOptions& options) {
  if (options._findString.empty()) return {};
  const std::u16string prefix =
      options._isRegex ? FindTextInString::regexLiteralStart(options._findString) : u"";
  const std::u16string_view needle = options._isRegex ? prefix : options._findString;
  if (needle.empty()) return {};
  std::string out;
  for (char16_t c : needle) {
    if (c == 0 || c >= 0x80) return {};
    // Ignoring case, plain ASCII folds to lower case and nothing else.
    if (options._isCaseSensitive && c >= u'A' && c <= u'Z') c += 32;
    out += static_cast<char>(c);
  }
  return out;
}

bool isAscii(std::string_view data) {
  const auto* p = reinterpret_cast<const unsigned char*>(data.data());
  std::size_t i = 0;
#if defined(__SSE2__)
  __m128i seen = _mm_setzero_si128();
  for (; i + 16 <= data.size(); i += 16) {
    seen = _mm_or_si128(seen, _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)));
  }
  if (_mm_movemask_epi8(seen)) return false;
#endif
  unsigned char rest = 0;
  for (; i < data.size(); ++i) rest |= p[i];
  return !(rest & 0x80);
}

// Whether `data` holds a needle that passes `screen` and `confirm`. When it
// does not, `ascii` tells whether every byte is ASCII, learnt on the same
// pass.
template <class Confirm>
bool containsScreened(std::string_view data, std::size_t m, const detail::ByteScreen& screen,
                      Confirm&& confirm, bool& ascii) {
  unsigned high = 0;
  std::size_t blocksEnd = 0;
  if (detail::findScreened(data, 0, m, screen, confirm, &high, &blocksEnd) !=
      std::string_view::npos)
    return true;
  ascii = high == 0 && isAscii(data.substr(blocksEnd));
  return false;
}

// Whether `data` holds `lower` (a lower-case needle) in any ASCII case.
bool containsIgnoringAsciiCase(std::string_view data, std::string_view lower, bool& ascii) {
  if (lower.empty()) {
    ascii = isAscii(data);
    return false;
  }
  return containsScreened(
      data, lower.size(), detail::ByteScreen::ignoringCase(lower),
      [&](std::size_t at) {
        for (std::size_t k = 0; k < lower.size(); ++k) {
          if (detail::foldAscii(data[at + k]) != lower[k]) return false;
        }
        return true;
      },
      ascii);
}

// Whether `data` holds `needle`.
bool containsBytes(std::string_view data, std::string_view needle, bool& ascii) {
  if (needle.empty()) {
    ascii = isAscii(data);
    return true;
  }
  return containsScreened(
      data, needle.size(), detail::ByteScreen::exact(needle),
      [&](std::size_t at) {
        return std::memcmp(data.data() + at, needle.data(), needle.size()) == 0;
      },
      ascii);
}

// Widens bytes to UTF-16 units; false (with `out` unspecified) when a byte
// is not ASCII.
bool widenAscii(std::string_view data, std::u16string& out) {
  out.resize(data.size());
  const auto* p = reinterpret_cast<const unsigned char*>(data.data());
  char16_t* o = out.data();
  std::size_t i = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= data.size(); i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    if (_mm_movemask_epi8(v)) return false;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o + i), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o + i + 8), _mm_unpackhi_epi8(v, zero));
  }
#endif
  for (; i < data.size(); ++i) {
    if (p[i] & 0x80) return false;
    o[i] = p[i];
  }
  return true;
}

// Files are read into one buffer per worker thread, grown as needed and
// never cleared: a search opens tens of thousands of small files. Past
// kReadLimit a file is mapped instead: copying it costs more.
constexpr std::size_t kFirstRead = 256 * 1024;
constexpr std::size_t kReadLimit = 1 << 20;

struct ReadBuffer {
  std::unique_ptr<char[]> bytes;
  std::size_t capacity = 0;
  void reserve(std::size_t size, std::size_t keep) {
    if (capacity >= size) return;
    auto grown = std::make_unique_for_overwrite<char[]>(size);
    if (keep) std::memcpy(grown.get(), bytes.get(), keep);
    bytes = std::move(grown);
    capacity = size;
  }
};

// Reads until `want` bytes are in or the file ends; -1 on an error.
ssize_t readUpTo(int fd, char* into, std::size_t want) {
  std::size_t got = 0;
  while (got < want) {
    const ssize_t n = ::read(fd, into + got, want - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
    // A regular file reads short only at its end: no call to learn that.
    if (got < want) break;
  }
  return static_cast<ssize_t>(got);
}

}  // namespace

std::optional<std::u16string> FileTextInProject::readFileText(const std::string& path,
                                                              const FindTextOptions& options,
                                                              Error* error) {
  ProjectFile file;
  if (!readProjectFile(path, options, asciiNeedle(options), false, file, error)) {
    return std::nullopt;
  }
  return std::move(file.text);
}

namespace {

int FolderCache::open(const std::string& file, int flags) {
  const std::size_t slash = file.rfind('/');
  if (slash == std::string::npos || slash == 0 || slash + 1 == file.size()) {
    return ::open(file.c_str(), flags);
  }
  const std::string_view folder(file.data(), slash);
  if (fd < 0 || folder != path) {
    if (fd >= 0) ::close(fd);
    path.assign(folder);
    fd = ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  }
  // Without the folder the whole path tells the reason.
  if (fd < 0) return ::open(file.c_str(), flags);
  return ::openat(fd, file.c_str() + slash + 1, flags);
}

bool readProjectFile(const std::string& path, const FindTextOptions& options,
                     std::string_view needle, bool keepAscii, ProjectFile& file, Error* error,
                     FolderCache* folders) {
  // O_NOFOLLOW: a link is not followed, it may lead out of the tree or round
  // in a loop.
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
  const int fd = folders ? folders->open(path, kFlags) : ::open(path.c_str(), kFlags);
  if (fd < 0) {
    if (errno != ENOENT && errno != ELOOP && error) {
      *error = cannotReadError(path, std::strerror(errno));
    }
    return false;
  }
  auto fail = [&](int code) {
    ::close(fd);
    // A folder is no file to search, not a failure.
    if (code != EISDIR && error) *error = cannotReadError(path, std::strerror(code));
    return false;
  };
  thread_local ReadBuffer buffer;
  buffer.reserve(kFirstRead, 0);
  // Most files end within the first read, which then tells their size
  // without a stat.
  ssize_t n = readUpTo(fd, buffer.bytes.get(), kFirstRead);
  if (n < 0) return fail(errno);
  file.isAscii = false;
  file.mapped.reset();
  std::optional<FileBytes>& mapped = file.mapped;
  std::string_view data(buffer.bytes.get(), static_cast<std::size_t>(n));
  if (static_cast<std::size_t>(n) == kFirstRead) {
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      ::close(fd);
      return false;
    }
    const auto size = static_cast<std::size_t>(st.st_size);
    bool whole = false;
    if (size <= kReadLimit) {
      // One byte more than the size tells a file that grew since fstat.
      buffer.reserve(size + 1, kFirstRead);
      const ssize_t more = size + 1 > kFirstRead ? readUpTo(fd, buffer.bytes.get() + kFirstRead,
                                                            size + 1 - kFirstRead)
                                                 : 0;
      if (more < 0) return fail(errno);
      const std::size_t got = kFirstRead + static_cast<std::size_t>(more);
      whole = got <= size;
      data = std::string_view(buffer.bytes.get(), got);
    }
    ::close(fd);
    if (!whole) {
      mapped = FileBytes::read(path, error);
      if (!mapped) return false;
      data = mapped->view();
    }
  } else {
    ::close(fd);
  }
  if (data.substr(0, FileTextInProject::kBinarySniff).find('\0') != std::string_view::npos) {
    return false;
  }

  if (options._isAutoEncoding || options._encodingName.empty()) {
    // Plain ASCII reads the same in every candidate; no detector needed, and
    // a file without the needle's bytes holds no hit.
    bool ascii = false;
    if (!needle.empty() &&
        !(options._isCaseSensitive ? containsIgnoringAsciiCase(data, needle, ascii)
                                   : containsBytes(data, needle, ascii))) {
      if (ascii) return false;
      // Text read as UTF-8 holds an exact ASCII needle only where its bytes
      // do. Ignoring case, other characters fold to ASCII letters (the Kelvin
      // sign; a sharp s for "ss" in a pattern), so such files are decoded.
      if (!options._isCaseSensitive && DetectorCharacter::readsAsUtf8(data)) return false;
    }
    if (keepAscii) {
      if (isAscii(data)) {
        file.ascii = data;
        file.isAscii = true;
        return true;
      }
    } else if (widenAscii(data, file.text)) {
      return true;
    }
    std::optional<std::u16string> text = DetectorCharacter::detectorWithData(data, nullptr);
    if (!text) return false;
    file.text = std::move(*text);
    return true;
  }
  std::optional<std::u16string> text = StringEncodings::decodeAsChosen(
      data, EncodingUtil::convertStringToNSStringEncoding(options._encodingName));
  if (!text) return false;
  file.text = std::move(*text);
  return true;
}

}  // namespace
}  // namespace harbor
