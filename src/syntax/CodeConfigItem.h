#pragma once

#include <string>

namespace harbor {

// One row of the format registry: which parser class and which syntax file.
struct CodeConfigItem {
  enum ConfigType : long {
    BuiltinExtension = 0,
    UserExtension = 1,
    UserFileName = 2,
    BuiltinFileName = 4,
  };

  std::string cls;
  std::string extension;
  std::string stxFilePath;  // empty for parsers that load no definition
  long configType = BuiltinExtension;

  std::string description() const;
  bool operator==(const CodeConfigItem&) const = default;
};

}  // namespace harbor
