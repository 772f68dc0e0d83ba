#include "filemanager/SectionUtils.h"

#include <unicode/alphaindex.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/Log.h"

namespace harbor {

struct IndexedCollation::Index {
  std::unique_ptr<icu::AlphabeticIndex::ImmutableIndex> immutable;
};

IndexedCollation::IndexedCollation(const std::string& localeName)
    : index_(std::make_unique<Index>()) {
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale locale(localeName.c_str());
  icu::AlphabeticIndex builder(locale, status);
  if (U_SUCCESS(status)) index_->immutable.reset(builder.buildImmutableIndex(status));
  if (U_FAILURE(status) || !index_->immutable) {
    HB_LOG("IndexedCollation",
           std::string("no index for ") + localeName + ": " + u_errorName(status));
    index_->immutable.reset();
  }
  // The alphabet's own letters become titles; under-, in- and overflow all
  // fall into the one "#" at the end.
  std::size_t other = 0;
  if (index_->immutable) {
    const int32_t count = index_->immutable->getBucketCount();
    for (int32_t i = 0; i < count; ++i) {
      const auto* bucket = index_->immutable->getBucket(i);
      if (bucket->getLabelType() == U_ALPHAINDEX_NORMAL) {
        std::string label;
        bucket->getLabel().toUTF8String(label);
        bucketToSection_.push_back(titles_.size());
        titles_.push_back(std::move(label));
      } else {
        bucketToSection_.push_back(SIZE_MAX);
      }
    }
  }
  other = titles_.size();
  titles_.push_back("#");
  for (auto& section : bucketToSection_) {
    if (section == SIZE_MAX) section = other;
  }
}

IndexedCollation::~IndexedCollation() = default;

std::shared_ptr<const IndexedCollation> IndexedCollation::currentCollation() {
  static std::mutex mutex;
  static std::map<std::string, std::shared_ptr<const IndexedCollation>> cache;
  const icu::Locale& current = icu::Locale::getDefault();
  std::string name = current.getName();
  // The POSIX locale collates code points, putting "a" after "Z"; an index
  // groups letters regardless of case, so it takes the language instead.
  if (std::string_view(current.getVariant()) == "POSIX" || name.empty() || name == "c") {
    name = *current.getLanguage() ? current.getLanguage() : "en";
  }
  std::lock_guard lock(mutex);
  auto& slot = cache[name];
  if (!slot) slot = std::make_shared<IndexedCollation>(name);
  return slot;
}

std::size_t IndexedCollation::sectionForName(std::string_view name) const {
  const std::size_t other = titles_.size() - 1;
  if (!index_->immutable) return other;
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString text = icu::UnicodeString::fromUTF8(
      icu::StringPiece(name.data(), static_cast<int32_t>(name.size())));
  int32_t bucket = index_->immutable->getBucketIndex(text, status);
  if (U_FAILURE(status) || bucket < 0 ||
      static_cast<std::size_t>(bucket) >= bucketToSection_.size()) {
    return other;
  }
  return bucketToSection_[static_cast<std::size_t>(bucket)];
}

std::vector<std::vector<std::string>> SectionUtils::partitionObjects(
    const std::vector<std::string>& objects, const IndexedCollation& collation,
    const std::function<std::string_view(const std::string&)>& key) {
  std::vector<std::vector<std::string>> sections(collation.sectionTitles().size());
  for (const auto& object : objects) {
    sections[collation.sectionForName(key(object))].push_back(object);
  }
  return sections;
}

void ArrayUtils::reverseSectionsArray(std::vector<std::vector<std::string>>& sections) {
  std::reverse(sections.begin(), sections.end());
  for (auto& section : sections) std::reverse(section.begin(), section.end());
}

}  // namespace harbor
