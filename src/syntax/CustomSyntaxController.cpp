#include "syntax/CustomSyntaxController.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/Log.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"
#include "prefs/EditorUtils.h"
#include "syntax/CodeFactory.h"

namespace harbor {
namespace fs = std::filesystem;

std::function<void(const std::string& path)> AddSyntaxViewController::openInEditor;

// ---- the list screens ----------------------------------------------------------------

CustomSyntaxBaseConroller::CustomSyntaxBaseConroller(IScreenPort* port, bool onlyFile)
    : isOnlyFile(onlyFile), port_(port) {}

void CustomSyntaxBaseConroller::viewDidLoad() {
  // Files a failed save or an older version left behind go first.
  if (isOnlyFile) {
    EditorUserDefaults::removeMultipleSyntaxOnlyFile();
  } else {
    EditorUserDefaults::removeMultipleSyntaxFile();
  }
  loadData();
}

void CustomSyntaxBaseConroller::loadData() {
  infos = isOnlyFile ? EditorUserDefaults::getEditorSynaxOnlyFileSettings()
                     : EditorUserDefaults::getEditorSynaxSettings();
  sections.clear();
  for (const auto& [name, values] : infos) sections.push_back(name);
  std::stable_sort(
      sections.begin(), sections.end(),
      [](const std::string& a, const std::string& b) { return toLower(a) < toLower(b); });
  selectedRows.clear();
}

std::vector<std::pair<std::string, std::string>> CustomSyntaxBaseConroller::rows() const {
  std::vector<std::pair<std::string, std::string>> out;
  for (const auto& name : sections) out.emplace_back(name, infos.at(name));
  return out;
}

std::shared_ptr<AddSyntaxViewController> CustomSyntaxBaseConroller::addSyntax(IScreenPort* port) {
  auto screen = std::make_shared<AddSyntaxViewController>(port);
  screen->isOnlyForFile = isOnlyFile;
  screen->delegate = this;
  return screen;
}

std::shared_ptr<AddSyntaxViewController> CustomSyntaxBaseConroller::didSelectRow(
    std::size_t row, IScreenPort* port) {
  if (row >= sections.size()) return nullptr;
  auto screen = addSyntax(port);
  screen->isEdit = true;
  screen->stxFileName = sections[row];
  screen->value = infos[sections[row]];
  screen->selectedRows = {row};
  return screen;
}

bool CustomSyntaxBaseConroller::deleteRow(std::size_t row) {
  std::lock_guard lock(mutex_);
  if (row >= sections.size()) return false;
  const std::string name = sections[row];
  const bool removed = isOnlyFile ? EditorUserDefaults::removeEditorSyntaxOnlyFileWithFileName(name)
                                  : EditorUserDefaults::removeEditorSyntaxWithFileName(name);
  if (!removed) {
    HB_LOG("CustomSyntaxBaseConroller", "cannot store the removal of " + name);
    if (port_) port_->showMessage("ActionFailure", localizedString("ActionFailure"));
  }
  reloadApplicationSyntax();
  return removed;
}

void CustomSyntaxBaseConroller::reloadApplicationSyntax() {
  if (isOnlyFile) {
    CodeFactory::loadCustomOnlyForFileSyntax();
  } else {
    CodeFactory::loadCustomExtensionsSyntax();
  }
  loadData();
}

void CustomSyntaxBaseConroller::onSaveSyntaxFileSuccess(AddSyntaxViewController&, bool) {
  reloadApplicationSyntax();
}

// ---- the edit screen -----------------------------------------------------------------

bool AddSyntaxViewController::isExistsSameFile(const std::string& fileName) const {
  // Editing may put a new version of the entry's own file in its place.
  if (isEdit && fileName == stxFileName) return false;
  std::error_code ec;
  return fs::exists(EditorUtils::fullName(fileName, isOnlyForFile), ec);
}

bool AddSyntaxViewController::pickStxFile(const std::string& path) {
  const std::string name = fs::path(path).filename().string();
  if (name.empty() || isExistsSameFile(name)) {
    alert("FileExists", localizedString("FileExists"));
    return false;
  }
  tempStxFilePath = path;
  if (!isEdit) stxFileName = name;
  return true;
}

std::string AddSyntaxViewController::displayedStxName() const {
  if (!tempStxFilePath.empty()) return fs::path(tempStxFilePath).filename().string();
  return stxFileName;
}

std::optional<std::string> AddSyntaxViewController::getCurrentStxFilePath() const {
  if (!tempStxFilePath.empty()) return tempStxFilePath;
  if (isEdit && !stxFileName.empty()) {
    return EditorUtils::fullName(stxFileName, isOnlyForFile).string();
  }
  return std::nullopt;
}

void AddSyntaxViewController::viewStxFile() const {
  auto path = getCurrentStxFilePath();
  if (path && openInEditor) openInEditor(*path);
}

void AddSyntaxViewController::alert(const std::string& key, const std::string& text) {
  if (!port_) return;
  ScreenAlert shown;
  shown.tag = kTagAlert;
  shown.key = key;
  shown.text = text;
  shown.buttons = {localizedString("OK")};
  port_->showAlert(shown, [](int, const std::vector<std::string>&) {});
}

bool AddSyntaxViewController::saveSettings(const std::string& fileName, const std::string& oldName,
                                           Error* error) {
  const std::string trimmed = trim(value);
  return isOnlyForFile
             ? EditorUserDefaults::saveEditorOnlyFileSyntaxSettings(trimmed, fileName, error,
                                                                    oldName)
             : EditorUserDefaults::saveEditorSyntaxSettings(trimmed, fileName, error, oldName);
}

bool AddSyntaxViewController::removeEntry(const std::string& fileName) {
  return isOnlyForFile ? EditorUserDefaults::removeEditorSyntaxOnlyFileWithFileName(fileName)
                       : EditorUserDefaults::removeEditorSyntaxWithFileName(fileName);
}

bool AddSyntaxViewController::saveContent() {
  const std::string trimmed = trim(value);
  const std::optional<std::string> path = getCurrentStxFilePath();
  std::error_code ec;
  if (!path || path->empty() || trimmed.empty() || !fs::is_regular_file(*path, ec)) {
    alert("NameNotNull", localizedString("NameNotNull"));
    return false;
  }

  // A picked file goes into the folder under its own name; a failed copy
  // takes back the entry that was just stored, so no entry names a missing
  // file.
  auto copyIn = [&](const std::string& name) {
    const fs::path target = EditorUtils::fullName(name, isOnlyForFile);
    std::error_code copyError;
    if (fs::exists(target, copyError) && fs::equivalent(*path, target, copyError)) return true;
    fs::copy_file(*path, target, fs::copy_options::overwrite_existing, copyError);
    if (copyError) {
      HB_LOG("AddSyntaxViewController", "cannot copy " + *path + ": " + copyError.message());
      removeEntry(name);
      alert("ActionFailure", localizedString("ActionFailure"));
      return false;
    }
    return true;
  };

  Error error;
  if (!isEdit) {
    const std::string name = fs::path(tempStxFilePath).filename().string();
    if (!saveSettings(name, {}, &error)) {
      alert(error.domain, error.domain);
      return false;
    }
    if (!copyIn(name)) return false;
  } else if (tempStxFilePath.empty()) {
    if (!saveSettings(stxFileName, stxFileName, &error)) {
      alert(error.domain, error.domain);
      return false;
    }
  } else {
    const std::string name = fs::path(tempStxFilePath).filename().string();
    if (!saveSettings(name, stxFileName, &error)) {
      alert(error.domain, error.domain);
      return false;
    }
    const fs::path old = EditorUtils::fullName(stxFileName, isOnlyForFile);
    std::error_code sameError;
    if (name != stxFileName || !fs::equivalent(*path, old, sameError)) {
      if (isOnlyForFile) {
        EditorUtils::removeEditorSyntaxFileOnly(stxFileName);
      } else {
        EditorUtils::removeEditorSyntaxFile(stxFileName);
      }
    }
    if (!copyIn(name)) return false;
  }
  saveSuccess();
  return true;
}

void AddSyntaxViewController::saveSuccess() {
  if (delegate) delegate->onSaveSyntaxFileSuccess(*this, isEdit);
  if (port_) port_->close();
}

}  // namespace harbor
