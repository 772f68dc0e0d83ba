// harbor mht extract: a web archive unpacked into plain files whose pages and
// style sheets point at each other.
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

#include "cli/Commands.h"
#include "cli/InterruptWatch.h"
#include "cli/Output.h"
#include "filemanager/FileUtil.h"
#include "platform/Cancellation.h"
#include "viewers/mht/MhtFormatParser.h"

namespace harbor::cli {
namespace {

namespace fs = std::filesystem;

struct ExtractOptions {
  std::string file;
  std::string dest;
  bool json = false;
};

// The unpacked folder goes to `target`: a rename when both sit on one file
// system, a copy otherwise.
bool placeFolder(const std::string& from, const std::string& target) {
  std::error_code ec;
  fs::rename(from, target, ec);
  if (!ec) return true;
  fs::copy(from, target, fs::copy_options::recursive, ec);
  return !ec;
}

int runExtract(const ExtractOptions& opts) {
  if (auto problem = checkPath(opts.file, PathNeed::File)) return fail("mht", *problem);
  if (fs::exists(opts.dest) && !fs::is_directory(opts.dest))
    return fail("mht", opts.dest + ": not a folder");

  CancellationToken token;
  InterruptWatch watch([token] { token.cancel(); });
  auto parser = MhtFormatParser::instanceWithFileURL(opts.file);
  std::string root;
  {
    CurrentCancellationScope scope(token);
    root = parser->parser();
  }
  // Only this run's own folder goes; other archives may be open elsewhere.
  const std::string temp = parser->tempRootPath();
  auto dropTemp = [&] {
    std::error_code ec;
    if (!temp.empty()) fs::remove_all(temp, ec);
  };
  if (root.empty() || !parser->rootFile()) {
    dropTemp();
    if (token.isCancelled()) return fail("mht", "interrupted");
    return fail("mht", opts.file + ": no page found in the archive");
  }

  if (!FileUtil::createFolder(opts.dest)) {
    dropTemp();
    return fail("mht", opts.dest + ": cannot create the folder");
  }
  std::string stem = FileUtil::getFileNameNoExtension(FileUtil::getFileName(opts.file));
  if (stem.empty()) stem = "archive";
  const std::string target = FileUtil::getCreateFolderName(opts.dest, stem);
  if (!placeFolder(temp, target)) {
    dropTemp();
    return fail("mht", target + ": cannot copy the unpacked files");
  }
  dropTemp();

  const std::string folderName = FileUtil::getFileName(target);
  auto relative = [&](const MhtFile& f) { return folderName + f.fullRelativePath(); };
  if (!opts.json) {
    std::cout << target << parser->rootFile()->fullRelativePath() << "\n";
    return 0;
  }
  ordered_json files = ordered_json::array();
  for (const auto& f : parser->files()) {
    files.push_back({{"path", relative(*f)},
                     {"location", f->_location},
                     {"cid", f->_cid},
                     {"type", f->_filetype},
                     {"charset", f->_charset}});
  }
  printJson(ordered_json{
      {"root", relative(*parser->rootFile())}, {"subject", parser->subject()}, {"files", files}});
  return 0;
}

void addMhtCommands(CLI::App& app, int& exitCode) {
  CLI::App* mht = app.add_subcommand("mht", "Unpack web archives (.mht, .mhtml)");
  mht->require_subcommand(1);
  auto opts = std::make_shared<ExtractOptions>();
  CLI::App* extract = mht->add_subcommand(
      "extract",
      "Unpack an archive into a new folder (named after it) inside DEST, with the pages' "
      "references pointing at the unpacked files; prints the root page's path");
  extract->add_option("FILE", opts->file, "The web archive")->required();
  extract->add_option("DEST", opts->dest, "The folder to unpack into (made if missing)")
      ->required();
  addJsonFlag(extract, opts->json,
              "Print {root, subject, files: [{path, location, cid, type, charset}]}, paths "
              "relative to DEST");
  extract->callback([opts, &exitCode] { exitCode = runExtract(*opts); });
}

}  // namespace

const CommandRegistrar mhtCommands(72, addMhtCommands);

}  // namespace harbor::cli
