#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace harbor {

// The indexed collation of a locale: the titles of a name index ("A".."Z",
// then "#" for everything the alphabet does not cover) and the section of a
// name. Built on ICU's alphabetic index; safe to use from any thread.
class IndexedCollation {
 public:
  // The collation of the current default locale, built once per locale.
  static std::shared_ptr<const IndexedCollation> currentCollation();
  explicit IndexedCollation(const std::string& localeName);
  ~IndexedCollation();

  const std::vector<std::string>& sectionTitles() const { return titles_; }
  // The index into sectionTitles for a name.
  std::size_t sectionForName(std::string_view name) const;

 private:
  struct Index;
  std::unique_ptr<Index> index_;
  std::vector<std::string> titles_;
  std::vector<std::size_t> bucketToSection_;
};

class SectionUtils {
 public:
  SectionUtils() = delete;
  // One list per title of the collation, each keeping the order of
  // `objects`; `key` gives the string that decides an object's section.
  static std::vector<std::vector<std::string>> partitionObjects(
      const std::vector<std::string>& objects, const IndexedCollation& collation,
      const std::function<std::string_view(const std::string&)>& key);
};

class ArrayUtils {
 public:
  ArrayUtils() = delete;
  // Reverses the order of the sections and the order within each.
  static void reverseSectionsArray(std::vector<std::vector<std::string>>& sections);
};

}  // namespace harbor
