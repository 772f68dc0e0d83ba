#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "editor/FindTextInString.h"
#include "platform/Error.h"
#include "platform/NotificationCenter.h"
#include "platform/OperationQueue.h"

namespace harbor {

// Posting it stops every search over many texts that is running.
inline constexpr const char* FileFindReplaceCancelNotification =
    "FileFindReplaceCancelNotification";

class FindTextBase;

class IFindTextBase {
 public:
  virtual ~IFindTextBase() = default;
  // The search is over, cancelled or not; called on the thread that ran
  // execute().
  virtual void onFinishFindText(FindTextBase& finder) = 0;
};

// A search over many texts: one worker per text on a queue of five, results
// gathered under a lock in the order the workers finish. Always held by
// shared_ptr (the cancel broadcast reaches it through a weak reference).
class FindTextBase : public std::enable_shared_from_this<FindTextBase> {
 public:
  static constexpr int kMaxWorkers = 5;

  static std::shared_ptr<FindTextBase> instanceWithOptions(std::shared_ptr<FindTextOptions> options,
                                                           IFindTextBase* delegate);
  virtual ~FindTextBase();
  FindTextBase(const FindTextBase&) = delete;
  FindTextBase& operator=(const FindTextBase&) = delete;

  // Runs the whole search on the calling thread and returns when it is over.
  virtual void execute() {}
  // Stops the workers; execute() still ends through executeFinished().
  void cancel();
  virtual void executeFinished() {}
  // The hits of tag 0, or nothing.
  virtual const std::vector<FindTextItem>* firstFindResult() const { return nullptr; }
  // A worker's answer, on the worker's thread. Here only an error is kept.
  virtual void onFinished(std::vector<FindTextItem> items, std::int64_t tag, const Error* error);

  std::unique_ptr<OperationQueue> queue;
  std::shared_ptr<FindTextOptions> _findTextOptions;
  std::uint64_t findResultNumber = 0;
  IFindTextBase* _delegate = nullptr;
  std::map<std::int64_t, std::vector<FindTextItem>> _tagResults;
  std::map<std::int64_t, std::string> _tagSource;
  std::vector<std::int64_t> _resultsObjects;  // tags with hits, as they arrived
  Error _error;

  // Whether the search stopped because its hits grew past what it may keep
  // (FindTextInString::itemMemoryLimit()); `_error` says so.
  bool isFull() const {
    std::lock_guard lock(mutex_);
    return full_;
  }

  // What the hits of all the workers may hold together; set afresh by
  // execute() from FindTextInString::itemMemoryLimit().
  ItemMemoryBudget& itemBudget() { return *budget_; }

 protected:
  FindTextBase() = default;
  template <class T>
  static std::shared_ptr<T> makeFinder(std::shared_ptr<FindTextOptions> options,
                                       IFindTextBase* delegate) {
    std::shared_ptr<T> finder(new T());
    finder->_findTextOptions = std::move(options);
    finder->_delegate = delegate;
    finder->initQueue();
    return finder;
  }
  void initQueue();
  void resetItemBudget();
  // Queues a worker unless the search was cancelled; false once it was.
  bool addWorker(std::shared_ptr<Operation> worker);
  // Waits for the workers, then executeFinished().
  void finishWhenDone();
  bool isCancelledSearch() const;
  // Under the lock: an error is kept and nothing else changes; a list with
  // hits joins the results under its tag, in the order of arrival.
  void gatherResults(std::vector<FindTextItem> items, std::int64_t tag, const Error* error);
  // The hits outgrew their budget: keeps what is gathered and stops the rest.
  void stopFullLocked();

  mutable std::mutex mutex_;

 private:
  bool cancelled_ = false;
  bool full_ = false;
  NotificationCenter::Token cancelObserver_ = 0;
  std::unique_ptr<ItemMemoryBudget> budget_;
};

// Over texts held in memory: the options' `_sourceObjects`, with tags made
// from `_sourceObjectsId` and sources from `_sourceURLs`.
class FindTextInStrings : public FindTextBase {
 public:
  // T lets a caller watch the workers' answers through onFinished.
  template <class T = FindTextInStrings>
  static std::shared_ptr<T> instanceWithOptions(std::shared_ptr<FindTextOptions> options,
                                                IFindTextBase* delegate) {
    return makeFinder<T>(std::move(options), delegate);
  }
  void execute() override;
  void executeFinished() override;
  const std::vector<FindTextItem>* firstFindResult() const override;
  void onFinished(std::vector<FindTextItem> items, std::int64_t tag, const Error* error) override;
};

// Over files: each is read and decoded as the options say. A file with a NUL
// in its first 8192 bytes is binary and skipped; links are not followed. Tags
// are indexes into `_files`, sources the paths.
class FileTextInProject : public FindTextBase {
 public:
  static constexpr std::size_t kBinarySniff = 8192;

  // T lets a caller watch the workers' answers through onFinished.
  template <class T = FileTextInProject>
  static std::shared_ptr<T> instanceWithFiles(std::vector<std::string> files,
                                              std::shared_ptr<FindTextOptions> options,
                                              IFindTextBase* delegate = nullptr) {
    auto finder = makeFinder<T>(std::move(options), delegate);
    finder->_files = std::move(files);
    return finder;
  }
  void execute() override;
  void executeFinished() override;
  const std::vector<FindTextItem>* firstFindResult() const override;
  void onFinished(std::vector<FindTextItem> items, std::int64_t tag, const Error* error) override;

  std::vector<std::string> _files;

  // The text of a file as a search reads it: nothing for a binary file or one
  // that does not decode; `error` is set only when it cannot be read.
  static std::optional<std::u16string> readFileText(const std::string& path,
                                                    const FindTextOptions& options, Error* error);

 private:
  std::atomic<std::size_t> nextFile_{0};
};

// A worker: searches one text and reports to its driver.
class FindTextOperationBase : public Operation {
 public:
  std::shared_ptr<FindTextOptions> _findTextOptions;
  FindTextBase* _findTextDelegate = nullptr;  // outlives its workers: execute() waits
  std::int64_t _tag = 0;

 protected:
  void report(std::u16string_view text, const Error* readError, bool countLines);
};

class FileTextInStringsOperation : public FindTextOperationBase {
 public:
  std::u16string _source;

 protected:
  void main() override;
};

// Searches `_filePath`, or, given `_files`, takes files from that list by
// `_nextFile` until none is left, reporting each under its index.
class FileTextInProjectOperation : public FindTextOperationBase {
 public:
  std::string _filePath;
  const std::vector<std::string>* _files = nullptr;
  std::atomic<std::size_t>* _nextFile = nullptr;

 protected:
  void main() override;

 private:
  void searchFile(const std::string& path, std::string_view needle);
};

}  // namespace harbor
