#include "gui/SettingsView.h"

#include <QApplication>
#include <QCheckBox>
#include <QDateTime>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QTimeEdit>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <map>

#include "editor/EditorBak.h"
#include "encoding/PickSystemLanguage.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/PickFileOrderType.h"
#include "filemanager/TempDirectoryUtil.h"
#include "gui/LockView.h"
#include "gui/MainWindow.h"
#include "gui/PasswordSettingsView.h"
#include "gui/PreferenceTable.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/Text.h"
#include "gui/Theme.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"
#include "platform/UserDefaults.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/PreferenceKeys.h"

namespace harbor::gui {

namespace {

void settingsChanged() {
  NotificationCenter::defaultCenter().post(notifications::SystemSettingsNotification);
}

// A stored flag a switch shows, read and written through its owner so a
// missing value shows the owner's default.
struct Flag {
  std::function<bool()> read;
  std::function<void(bool, QWidget*)> write;
};

const std::map<std::string, Flag>& flags() {
  static const std::map<std::string, Flag> table = {
      {keys::SYSTEM_LOCKORIENTATION,
       {[] { return AppUserDefaultUtils::getLockOrientation(); },
        [](bool on, QWidget* view) {
          // A desktop window's orientation is its shape: 1 portrait, 3 landscape.
          const QWidget* w = view->window();
          AppUserDefaultUtils::saveLockSetting(on, w->height() > w->width() ? 1 : 3);
        }}},
      {keys::SystemEditorAutoBak,
       {[] { return EditorBak::getSystemEditorAutoBak(); },
        [](bool on, QWidget*) { EditorBak::saveSystemEditorAutoBak(on); }}},
      {keys::SYSTEM_NIGHT_MODE,
       {[] { return AppUserDefaultUtils::getNightMode(); },
        [](bool on, QWidget*) { AppUserDefaultUtils::saveNightMode(on); }}},
      {keys::SYSTEM_HIDDEN_TITLE_PLAYING_VIDEO,
       {[] { return AppUserDefaultUtils::getHiddenTitlePlayingVideo(); },
        [](bool on, QWidget*) { AppUserDefaultUtils::saveHiddenTitlePlayingVideo(on); }}},
  };
  return table;
}

// A row whose event offers a list of values.
struct Picker {
  std::string title;
  std::function<std::vector<std::string>()> rows;
  std::function<int()> selected;
  std::function<void(int)> choose;
};

const std::vector<std::string>& imageFormats() {
  static const std::vector<std::string> values{"Automatic", "jpg", "png"};
  return values;
}

const std::map<std::string, Picker>& pickers() {
  static const std::map<std::string, Picker> table = {
      {"loadFileOrderType:",
       {"DefaultFileOrderType", [] { return PickFileOrderType().rows(); },
        [] { return PickFileOrderType().selectedRow(); },
        [](int row) { PickFileOrderType().didSelectRow(row); }}},
      {"loadShowItemsType:",
       {"Display Options",
        [] {
          return std::vector<std::string>{CommonUtil::getShowItemsOptionsString(0),
                                          CommonUtil::getShowItemsOptionsString(1)};
        },
        [] { return CommonUtil::getShowItemsOptionsValue(); },
        [](int row) {
          UserDefaults::standard().setObject(CommonUtil::kShowItemsOptionsKey, row);
        }}},
      {"loadImageFormat:",
       {"Import image format",
        [] {
          std::vector<std::string> rows;
          for (const std::string& v : imageFormats()) rows.push_back(localizedString(v));
          return rows;
        },
        [] {
          const QString stored = QString::fromStdString(ImageSettings::getImportFormat());
          for (std::size_t i = 0; i < imageFormats().size(); ++i) {
            if (stored.compare(QString::fromStdString(imageFormats()[i]), Qt::CaseInsensitive) == 0)
              return static_cast<int>(i);
          }
          return 0;
        },
        [](int row) {
          ImageSettings::saveImportFormat(imageFormats().at(static_cast<std::size_t>(row)));
        }}},
  };
  return table;
}

// The default encoding through the encoding picker's own controller.
class EncodingChoice : public IPickSystemLanguageView {
 public:
  explicit EncodingChoice(QWidget* parent) : picker_(*this) {
    picker_.systemLanguage = EncodingUtilDefault();
    picker_.viewDidLoad();
    std::vector<std::string> rows;
    for (int i = 0; i < picker_.numberOfRows(); ++i) rows.push_back(picker_.textOfRow(i));
    dialog_ = new ChoiceDialog(parent, loc("Encoding"), rows, picker_.getSelectInt(),
                               [this](int row) { picker_.didSelectRow(row); });
    dialog_->setObjectName(QStringLiteral("picker_loadEncoding"));
    // The dialog owns this adapter.
    QObject::connect(dialog_, &QObject::destroyed, [this] { delete this; });
  }
  ChoiceDialog* dialog() const { return dialog_; }

  void reloadRows() override {}
  void markRow(int row) override {
    if (dialog_) dialog_->mark(row);
  }
  void scrollToRow(int) override {}
  bool isCancellable() const override { return true; }
  void close() override {}

 private:
  static std::string EncodingUtilDefault() {
    return UserDefaults::standard().stringForKey(keys::SYSTEM_DEFAULT_Encoding, "Automatic");
  }
  PickSystemLanguage picker_;
  ChoiceDialog* dialog_ = nullptr;
};

}  // namespace

ChoiceDialog::ChoiceDialog(QWidget* parent, const QString& title,
                           const std::vector<std::string>& rows, int marked,
                           std::function<void(int)> choose)
    : QDialog(parent), list_(new QListWidget(this)) {
  setWindowTitle(title);
  setAttribute(Qt::WA_DeleteOnClose);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(list_);
  for (const std::string& row : rows) list_->addItem(QString::fromStdString(row));
  mark(marked);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
  buttons->button(QDialogButtonBox::Cancel)->setText(loc("Cancel"));
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  layout->addWidget(buttons);
  connect(list_, &QListWidget::itemClicked, this, [this, choose](QListWidgetItem* item) {
    const int row = list_->row(item);
    if (choose) choose(row);
    mark(row);
    accept();
  });
  resize(320, std::min(480, 120 + 26 * static_cast<int>(rows.size())));
}

void ChoiceDialog::mark(int row) {
  for (int i = 0; i < list_->count(); ++i) {
    list_->item(i)->setCheckState(i == row ? Qt::Checked : Qt::Unchecked);
    list_->item(i)->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
  }
  if (row >= 0 && row < list_->count()) list_->scrollToItem(list_->item(row));
}

SettingsView::SettingsView(MainWindow& window) : QWidget(&window), window_(window) {
  setObjectName(QStringLiteral("settingsView"));
  setProperty("crumb", loc("Settings"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  table_ = new PreferenceTable(this);
  layout->addWidget(table_);
  auto& center = NotificationCenter::defaultCenter();
  auto changed = [this](const auto&) {
    // Later, not inside the handler of a widget the reload replaces.
    if (reloadQueued_) return;
    reloadQueued_ = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
          reloadQueued_ = false;
          applyApplicationTheme();
          reload();
        },
        Qt::QueuedConnection);
  };
  for (const char* name :
       {notifications::SystemSettingsNotification, notifications::HBEncodingChangeNotication,
        notifications::HBFileOrderTypeChangeNotication}) {
    tokens_.push_back(center.addObserver(name, changed));
  }
  reload();
}

SettingsView::~SettingsView() {
  for (auto token : tokens_) NotificationCenter::defaultCenter().removeObserver(token);
}

void SettingsView::reload() {
  settings_.loadPreferences();
  std::vector<PreferenceSection> sections = settings_.preferences;
  // Night hours belong on a desktop too; they follow the display options.
  sections.insert(sections.begin() + std::min<std::size_t>(2, sections.size()),
                  settings_.loadNightMode());
  table_->clear();
  for (const PreferenceSection& section : sections) {
    if (section.empty()) continue;
    QFrame* card =
        table_->addSection(PreferenceTable::value(section.front(), rowkeys::sectionTitle));
    for (const PreferenceRow& row : section) addRow(card, row);
  }
}

void SettingsView::addRow(QWidget* section, const PreferenceRow& row) {
  auto* card = static_cast<QFrame*>(section);
  const std::string text = PreferenceTable::value(row, rowkeys::text);
  const std::string event = PreferenceTable::value(row, rowkeys::event);
  const std::string detail = PreferenceTable::value(row, rowkeys::detail);
  const std::string control = PreferenceTable::value(row, rowkeys::control);
  const std::string content = PreferenceTable::value(row, rowkeys::content);
  if (control == "UISwitch") {
    auto it = flags().find(content);
    if (it == flags().end()) return;  // a flag this desktop does not have
    auto* box = new QCheckBox;
    box->setObjectName(QString::fromStdString(content));
    box->setChecked(it->second.read());
    connect(box, &QCheckBox::clicked, this, [this, content](bool on) {
      flags().at(content).write(on, this);
      settingsChanged();
    });
    table_->addRow(card, text, {}, box);
    return;
  }
  if (PreferenceTable::value(row, rowkeys::style) == "3") {
    // A credit: the library, what it does and its licence.
    auto* licence =
        new QLabel(QString::fromStdString(PreferenceTable::value(row, rowkeys::accessoryTitle)));
    licence->setForegroundRole(QPalette::PlaceholderText);
    table_->addRow(card, text, detail, licence);
    return;
  }
  QWidget* open = nullptr;
  if (!event.empty()) {
    auto* button = new QToolButton;
    button->setText(
        (detail.empty() ? QString() : QString::fromStdString(detail) + QStringLiteral("  ")) +
        QStringLiteral("\u203a"));
    button->setObjectName(QString::fromStdString(event));
    button->setAutoRaise(true);
    button->setCursor(Qt::PointingHandCursor);
    connect(button, &QToolButton::clicked, this, [this, event] { runEvent(event); });
    open = button;
  }
  table_->addRow(card, text, {}, open);
}

void SettingsView::runEvent(const std::string& event) {
  if (auto it = pickers().find(event); it != pickers().end()) {
    const Picker& picker = it->second;
    auto* dialog = new ChoiceDialog(this, loc(picker.title), picker.rows(), picker.selected(),
                                    [choose = picker.choose](int row) {
                                      choose(row);
                                      settingsChanged();
                                    });
    dialog->setObjectName(QStringLiteral("picker_") +
                          QString::fromStdString(event.substr(0, event.size() - 1)));
    dialog->open();
    return;
  }
  if (event == "loadEncoding:") {
    (new EncodingChoice(this))->dialog()->open();
  } else if (event == "loadLoginPassword:") {
    window_.showNamed("lock-settings", {});
  } else if (event == "loadNightModeOptions:") {
    nightModeOptions();
  } else if (event == "loadSyntaxExtension:" || event == "loadSyntaxFileName:") {
    if (!window_.showNamed("custom-syntax", {})) {
      QtScreenPort(this).showMessage(localizedString("This screen is not available here."));
    }
  } else if (event == "clearTemp:") {
    TempDirectoryUtil::deleteTemp();
    QtScreenPort(this).showMessage(localizedString("TempCleared"));
  } else if (event == "aboutUs:") {
    QMessageBox::about(
        this, loc("AboutUs"),
        QApplication::applicationDisplayName() + QStringLiteral("\n\n") + loc("AboutText"));
  }
}

void SettingsView::nightModeOptions() {
  auto* dialog = new QDialog(this);
  dialog->setObjectName(QStringLiteral("nightModeOptions"));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowTitle(loc("Night mode"));
  auto* form = new QFormLayout(dialog);
  auto timeOf = [](AppUserDefaultUtils::Clock::time_point t) {
    return QDateTime::fromSecsSinceEpoch(
               std::chrono::duration_cast<std::chrono::seconds>(t.time_since_epoch()).count())
        .time();
  };
  auto* start = new QTimeEdit(timeOf(AppUserDefaultUtils::getStartTime()), dialog);
  start->setObjectName(QStringLiteral("nightStart"));
  start->setDisplayFormat(QStringLiteral("HH:mm"));
  auto* end = new QTimeEdit(timeOf(AppUserDefaultUtils::getEndTime()), dialog);
  end->setObjectName(QStringLiteral("nightEnd"));
  end->setDisplayFormat(QStringLiteral("HH:mm"));
  form->addRow(loc("NightModeStart"), start);
  form->addRow(loc("NightModeEnd"), end);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
  buttons->button(QDialogButtonBox::Ok)->setText(loc("OK"));
  buttons->button(QDialogButtonBox::Cancel)->setText(loc("Cancel"));
  form->addRow(buttons);
  connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
  connect(buttons, &QDialogButtonBox::accepted, dialog, [dialog, start, end] {
    auto today = [](const QTime& time) {
      return AppUserDefaultUtils::Clock::time_point(
          std::chrono::seconds(QDateTime(QDate::currentDate(), time).toSecsSinceEpoch()));
    };
    AppUserDefaultUtils::saveStartTime(today(start->time()));
    AppUserDefaultUtils::saveEndTime(today(end->time()));
    settingsChanged();
    dialog->accept();
  });
  dialog->open();
}

void registerSettingsViews() {
  Screens::addShow("settings", [](const std::string&, MainWindow& window) -> QWidget* {
    return new SettingsView(window);
  });
  Screens::addScreen("SystemSettingsController",
                     [](std::shared_ptr<ViewController>, MainWindow& window) -> QWidget* {
                       return new SettingsView(window);
                     });
  registerLockViews();
}

}  // namespace harbor::gui
