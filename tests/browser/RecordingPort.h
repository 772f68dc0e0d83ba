#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/MainQueue.h"
#include "platform/ScreenPort.h"

namespace harbor::test {

// A port that records what screens show and answers from a queue: each
// alert takes the next alert answer (a button key and fields), each sheet the
// next entry key. With nothing queued the question stays open.
class RecordingPort : public IScreenPort {
 public:
  struct Event {
    std::string ui;
    int tag = 0;
    std::string key;
    std::string text;
    std::vector<std::string> entries;
    std::string screenClass;
    std::string path;
    ScreenRoute route = ScreenRoute::Preview;
    std::vector<std::string> files;
    std::size_t current = 0;
  };
  static Event ev(std::string ui, int tag = 0, std::string key = {}, std::string text = {},
                  std::vector<std::string> entries = {}, std::string cls = {},
                  std::string path = {}) {
    Event e;
    e.ui = std::move(ui);
    e.tag = tag;
    e.key = std::move(key);
    e.text = std::move(text);
    e.entries = std::move(entries);
    e.screenClass = std::move(cls);
    e.path = std::move(path);
    return e;
  }
  struct AlertAnswer {
    std::string button;
    std::vector<std::string> fields;
  };

  std::vector<Event> events;
  std::deque<AlertAnswer> alertAnswers;
  std::deque<std::string> sheetAnswers;
  std::vector<std::shared_ptr<ViewController>> pushed;
  int pops = 0;
  AlertReply openAlert;
  SheetReply openSheet;

  void showAlert(const ScreenAlert& a, AlertReply reply) override {
    events.push_back(ev(a.fields.empty() ? "alert" : "prompt", a.tag, a.key, a.text, a.buttons,
                        a.screenClass, a.screenPath));
    if (alertAnswers.empty()) {
      openAlert = std::move(reply);
      return;
    }
    AlertAnswer answer = alertAnswers.front();
    alertAnswers.pop_front();
    int button = kScreenCancel;
    for (std::size_t i = 0; i < a.buttons.size(); ++i)
      if (a.buttons[i] == answer.button) button = static_cast<int>(i);
    if (reply)
      MainQueue::shared().post([reply, button, fields = answer.fields] { reply(button, fields); });
  }
  void showSheet(const ScreenSheet& s, SheetReply reply) override {
    events.push_back(ev("sheet", s.tag, s.key, s.text, s.rows, s.screenClass, s.screenPath));
    if (sheetAnswers.empty()) {
      openSheet = std::move(reply);
      return;
    }
    std::string entry = sheetAnswers.front();
    sheetAnswers.pop_front();
    int row = kScreenCancel;
    for (std::size_t i = 0; i < s.rows.size(); ++i)
      if (s.rows[i] == entry) row = static_cast<int>(i);
    if (reply) MainQueue::shared().post([reply, row] { reply(row); });
  }
  void showMessage(const std::string& key, const std::string& text) override {
    events.push_back(ev("message", 0, key, text));
  }
  void setTitle(const std::string& title) override { events.push_back(ev("title", 0, {}, title)); }
  void setStatus(const std::string& text) override { events.push_back(ev("status", 0, {}, text)); }
  void push(std::shared_ptr<ViewController> screen) override {
    events.push_back(ev("push", 0, {}, {}, {}, screen->className()));
    pushed.push_back(std::move(screen));
  }
  void pop() override {
    ++pops;
    events.push_back(ev("pop"));
  }
  bool supportsRoute(ScreenRoute) const override { return true; }
  void openFiles(ScreenRoute route, const std::vector<std::string>& files,
                 std::size_t current) override {
    Event e = ev("open");
    e.route = route;
    e.files = files;
    e.current = current;
    events.push_back(e);
  }

  std::vector<Event> all(const std::string& ui) const {
    std::vector<Event> found;
    for (const auto& e : events)
      if (e.ui == ui) found.push_back(e);
    return found;
  }
  std::optional<Event> last(const std::string& ui) const {
    for (auto it = events.rbegin(); it != events.rend(); ++it)
      if (it->ui == ui) return *it;
    return std::nullopt;
  }
};

}  // namespace harbor::test
