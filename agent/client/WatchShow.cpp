#include <Kiv/Clock.h>
#include <agent/client/Screen.h>
#include <agent/client/WatchShow.h>
#include <agent/client/WatchView.h>
#include <agent/core/Output.h>
#include <agent/core/Style.h>
#include <agent/show/Shows.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// One watching, from the first picture to the last.
class Watch {
 public:
  Watch(ShownDocument& shown, double interval)
      : shown_(shown), show_(*showOf(shown.request().what)), interval_(interval) {}

  Exit run() {
    Exit exit = exitDone;
    std::string wrong;
    auto document = shown_.next(&wrong, &exit);
    {
      // There is a screen only from the first document on, and no more when the complaint is printed.
      std::optional<Screen> screen;
      if (document) screen.emplace();
      for (; document; document = shown_.next(&wrong, &exit)) {
        if (!picture(*screen, *document)) return exitDone;
        if (quit_) return exitDone;
      }
    }
    complain(wrong);
    return exit;
  }

 private:
  /// All but the first and the last line of the screen.
  static size_t linesOf(const ScreenSize& size) { return size.rows > 2 ? size.rows - 2 : 1; }

  /// Shows a document until the next one is due, or another is wanted. False when the terminal is gone.
  bool picture(Screen& screen, const Json& document) {
    const double until = Kiv::steadyClock().now().seconds() + interval_;
    stale_ = false;
    for (double left = interval_; !quit_ && !stale_ && left > 0;
         left = until - Kiv::steadyClock().now().seconds()) {
      if (!draw(screen, document) || !screen.wait(left, input_)) return false;
      for (const WatchKey key : takeKeys(input_)) handle(key);
    }
    return true;
  }

  bool draw(Screen& screen, const Json& document) {
    const ScreenSize size = Screen::size();
    const bool colour = wantsColour(STDOUT_FILENO);
    const Style style(colour);
    view_.textIs(show_.text(document, {colour, Kiv::wallClock().now().seconds(), size.columns}));
    std::vector<std::string> rows = {style.bold + fitted(title(), size.columns)};
    for (std::string& line : view_.lines(linesOf(size), size.columns)) rows.push_back(std::move(line));
    while (rows.size() + 1 < size.rows) rows.emplace_back();
    rows.push_back(style.bold + fitted(footer(linesOf(size)), size.columns));
    return screen.draw(rows);
  }

  static std::string fitted(const std::string& text, size_t columns) { return text.substr(0, columns); }

  std::string title() const {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char time[16];
    std::strftime(time, sizeof time, "%H:%M:%S", &parts);
    const ShowRequest& request = shown_.request();
    return fmt::format("{} UTC  {}{}{}", time, request.what, request.list.empty() ? "" : " ", request.list);
  }

  std::string footer(size_t shown) const {
    std::string keys;
    if (show_.selects) {
      constexpr const char* orders[] = {"number", "hits", "last"};
      keys = fmt::format("s sort: {}  u {}  n next list  ",
                         orders[static_cast<size_t>(shown_.request().ruleOrder())],
                         shown_.request().unused ? "all rules" : "unused");
    }
    return keys + "q quit  " + view_.placeText(shown);
  }

  void handle(WatchKey key) {
    ShowRequest& request = shown_.request();
    if (key == WatchKey::quit) quit_ = true;
    if (show_.selects && key == WatchKey::sort) {
      constexpr RuleOrder after[] = {RuleOrder::hits, RuleOrder::last, RuleOrder::number};
      request.order = after[static_cast<size_t>(request.ruleOrder())];
      stale_ = true;
    }
    if (show_.selects && key == WatchKey::unused) {
      request.unused = !request.unused;
      request.hit = false;
      stale_ = true;
    }
    view_.move(key, linesOf(Screen::size()));
  }

  ShownDocument& shown_;
  const Show& show_;
  const double interval_;
  WatchView view_;
  std::string input_;
  bool quit_ = false;
  bool stale_ = false;  // keys have changed what is asked for since the document was made
};

}  // namespace

std::optional<Json> ShownDocument::next(std::string* wrong, Exit* exit) {
  Json request = {{"do", "show"}, {"what", request_.what}};
  for (const auto& [member, value] : {std::pair("name", &request_.list),
                                      {"interface", &request_.interface},
                                      {"source", &request_.source}}) {
    if (!value->empty()) request[member] = *value;
  }
  if (request_.hit) request["hit"] = true;
  if (request_.unused) request["unused"] = true;
  if (request_.summary) request["summary"] = true;
  auto document = wholeDocumentOf(agent_, request, wrong, exit);
  if (document && showOf(request_.what)->selects) {
    if (withRates_) rates_.add(*document, Kiv::steadyClock().now().seconds());
    arrangeLists(*document, request_.ruleOrder(), request_.top);
  }
  return document;
}

Exit watchShow(ShownDocument& shown, double interval) { return Watch(shown, interval).run(); }

}  // namespace Agent
