#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "platform/Unicode.h"
#include "support/TestSupport.h"

namespace harbor::test {

// Sets (or with nullptr unsets) an environment variable for one scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value) {
      setenv(name, value, 1);
    } else {
      unsetenv(name);
    }
  }
  ~ScopedEnv() {
    if (old_) {
      setenv(name_.c_str(), old_->c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

// The system language for one scope, whatever the machine's locale says.
struct ScopedLanguage {
  explicit ScopedLanguage(const char* language)
      : language_("LANGUAGE", language),
        all_("LC_ALL", nullptr),
        messages_("LC_MESSAGES", nullptr),
        lang_("LANG", nullptr) {}
  ScopedEnv language_, all_, messages_, lang_;
};

inline std::string fixture(const std::string& name) {
  return readFile(testData("encoding/" + name));
}

inline std::optional<std::string> utf8(const std::optional<std::u16string>& text) {
  if (!text) return std::nullopt;
  return toUtf8(*text);
}

}  // namespace harbor::test
