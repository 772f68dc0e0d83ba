#pragma once

#include <any>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Error.h"

namespace harbor {

// The progress sink shared by copying, archives and imports. Every member is
// optional: the defaults do nothing (or answer 0), so a sink overrides only
// what it shows. Workers call these from their own threads; a sink that
// touches a screen hops to the main queue itself.
class IActionProgress {
 public:
  virtual ~IActionProgress() = default;

  // A number of finished units (usually bytes), added to the running size.
  virtual void progressFinished(std::uint64_t units) { (void)units; }
  virtual void progressFinished(std::uint64_t units, const std::string& currentObject) {
    (void)units;
    (void)currentObject;
  }
  // An absolute position, replacing the running size.
  virtual void progressUpdateCurrentSize(std::uint64_t position) { (void)position; }
  // The item being worked on (usually a path or a name).
  virtual void progressCurrentObject(const std::string& object) { (void)object; }

  virtual std::uint64_t currentSize() const { return 0; }
  virtual std::uint64_t totalSize() const { return 0; }
  virtual void setTotalSize(std::uint64_t total) { (void)total; }

  virtual void updateTitle(const std::string& title) { (void)title; }
  virtual void updateAnimating(bool animating) { (void)animating; }
  virtual void setProgressTotal(float total) { (void)total; }

  // The end of an action on `path` towards `destination`. `tag` is whatever
  // the caller handed to the action; no error means success.
  virtual void onFinishActionProgress(const std::string& path, const std::string& destination,
                                      const std::any& tag, const std::optional<Error>& error) {
    (void)path;
    (void)destination;
    (void)tag;
    (void)error;
  }
};

// A sink that only counts: finished units add up, a position replaces the
// sum. Safe to call from several workers at once.
class ActionProgressCounter : public IActionProgress {
 public:
  using IActionProgress::progressFinished;
  void progressFinished(std::uint64_t units) override { current_ += units; }
  void progressUpdateCurrentSize(std::uint64_t position) override { current_ = position; }
  std::uint64_t currentSize() const override { return current_; }
  std::uint64_t totalSize() const override { return total_; }
  void setTotalSize(std::uint64_t total) override { total_ = total; }

 private:
  std::atomic<std::uint64_t> current_{0};
  std::atomic<std::uint64_t> total_{0};
};

}  // namespace harbor
