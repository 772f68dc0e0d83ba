// harbor detect, decode and encodings: the encoding subsystem as scripts use it.
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "encoding/FileBytes.h"
#include "platform/Unicode.h"

namespace harbor::cli {
namespace {

struct DetectOptions {
  std::vector<std::string> files;
  bool json = false;
};

struct DecodeOptions {
  std::string file;
  std::string encoding;
};

int runDetect(const DetectOptions& opts) {
  int code = 0;
  ordered_json list = ordered_json::array();
  for (const std::string& path : opts.files) {
    Error error;
    std::vector<std::string> candidates = DetectorCharacter::detectorFileEncoding(path, &error);
    std::string encoding;
    bool decoded = false;
    if (error.message.empty()) {
      decoded = DetectorCharacter::detectorWithFilePath(path, &encoding, &error).has_value();
    }
    if (!decoded) {
      warn("detect",
           error.message.empty() ? path + ": not text in any detected encoding" : error.message);
      code = 1;
    }
    if (opts.json) {
      list.push_back({{"path", path},
                      {"candidates", candidates},
                      {"encoding", decoded ? ordered_json(encoding) : ordered_json(nullptr)}});
      continue;
    }
    std::string names;
    for (const auto& c : candidates) names += (names.empty() ? "" : ", ") + c;
    std::cout << path << ": " << (decoded ? encoding : "(none)") << "\n"
              << "  candidates: " << (names.empty() ? "(none)" : names) << "\n";
  }
  if (opts.json) printJson(list);
  return code;
}

int runDecode(const DecodeOptions& opts) {
  const bool detect = opts.encoding.empty() || equalsIgnoreCase(opts.encoding, "Automatic");
  if (!detect &&
      StringEncodings::convertIANACharSetNameToEncoding(opts.encoding) == kInvalidTableEncoding) {
    return fail("decode",
                "unknown encoding " + opts.encoding + " (harbor encodings lists the names)", 2);
  }
  Error error;
  std::optional<FileBytes> bytes = FileBytes::read(opts.file, &error);
  if (!bytes) {
    if (auto problem = checkPath(opts.file, PathNeed::File)) return fail("decode", *problem);
    return fail("decode", error.message);
  }
  std::optional<std::u16string> text;
  if (detect) {
    std::string used;
    text = DetectorCharacter::detectorWithData(bytes->view(), &used);
  } else {
    text = StringEncodings::decodeAsChosen(
        bytes->view(), EncodingUtil::convertStringToNSStringEncoding(opts.encoding));
  }
  if (!text) {
    return fail("decode", detect ? opts.file + " is not text in any detected encoding"
                                 : opts.file + " is not valid " + opts.encoding);
  }
  std::cout << toUtf8(*text);
  std::cout.flush();
  return std::cout ? 0 : 1;
}

int runEncodings(bool json) {
  ordered_json list = ordered_json::array();
  for (const EncodingItem& item : EncodingUtil::allAvailableStringEncodingsOrdered()) {
    if (json) {
      list.push_back({{"name", item.name},
                      {"localizedName", item.localizedName},
                      {"encoding", item.encoding}});
    } else {
      std::cout << item.name << "\t" << item.localizedName << "\n";
    }
  }
  if (json) printJson(list);
  return 0;
}

void addEncodingCommands(CLI::App& app, int& exitCode) {
  auto detectOpts = std::make_shared<DetectOptions>();
  CLI::App* detect = app.add_subcommand(
      "detect",
      "Detect the text encoding of files: the candidates, best first, and the one that decodes");
  detect->add_option("FILE", detectOpts->files, "Files to look at")->required();
  detect->add_flag(
      "--json", detectOpts->json,
      "Print a list of {path, candidates, encoding}; encoding is null when nothing decodes");
  detect->callback([detectOpts, &exitCode] { exitCode = runDetect(*detectOpts); });

  auto decodeOpts = std::make_shared<DecodeOptions>();
  CLI::App* decode =
      app.add_subcommand("decode", "Print a file's text as UTF-8, detecting its encoding");
  decode->add_option("FILE", decodeOpts->file, "The file")->required();
  decode
      ->add_option("--encoding", decodeOpts->encoding,
                   "Decode with this charset instead of detecting (\"Automatic\" detects)")
      ->type_name("NAME");
  decode->callback([decodeOpts, &exitCode] { exitCode = runDecode(*decodeOpts); });

  auto listJson = std::make_shared<bool>(false);
  CLI::App* encodings =
      app.add_subcommand("encodings", "List the encodings Harbor can decode, by localised name");
  encodings->add_flag("--json", *listJson, "Print a list of {name, localizedName, encoding}");
  encodings->callback([listJson, &exitCode] { exitCode = runEncodings(*listJson); });
}

}  // namespace

const CommandRegistrar encodingCommands(30, addEncodingCommands);

}  // namespace harbor::cli
