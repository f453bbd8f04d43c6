#include <agent/core/Style.h>
#include <agent/core/Words.h>
#include <agent/show/ListRow.h>
#include <agent/show/Text.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string bindingsText(const Json& list) {
  std::string text;
  for (const Json& binding : list.at("bindings")) text += (text.empty() ? "" : ", ") + boundAt(binding);
  return text.empty() ? "bound nowhere" : text;
}

/// Writes lists one below the other, with columns of the same width in all of them.
class ListsText {
 public:
  ListsText(const Json& lists, const TextStyle& how) : how_(how), style_(how.colour), rows_(lists, how) {}

  void add(const Json& list) {
    addTitle(list);
    text_ += rows_.heading();
    for (const Json& rule : list.at("rules")) addRule(rule);
    for (const Json& remark : list.value("remarks", Json::array())) addRemark(remark.get<std::string>());
    addFindings(list);
    if (const Json& drop = list.at("implicitDrop"); !drop.is_null()) {
      text_ += rows_.row("", "(what matches no rule is dropped)", drop) + "\n";
    } else {
      text_ += fmt::format("{}{}(what matches no rule is dropped, see below){}\n", style_.dim, rows_.indent(),
                           style_.off);
    }
    text_ += "\n";
  }

  void addUndefined(const Json& list) {
    addRed(fmt::format("{} is bound ({}) but {}", listTitle(list), bindingsText(list), notDefined));
  }

  void addOpen(const Json& opening) { addRed("open: " + opening.at("text").get<std::string>()); }

  std::string takeText() { return std::move(text_); }

 private:
  void addRed(const std::string& line) {
    for (const std::string& part : wrapped(line, how_.width.value_or(line.size())))
      text_ += fmt::format("{}{}{}\n", style_.red, part, style_.off);
  }

  void addTitle(const Json& list) {
    const std::string title = listTitle(list), bindings = fmt::format("({})", bindingsText(list));
    std::string notes;
    if (list.at("source").is_string()) notes += "  from " + list.at("source").get<std::string>();
    const char* before = ", overrides ";
    for (const Json& source : list.at("overridden")) {
      notes += before + source.get<std::string>();
      before = ", ";
    }
    std::string cleared;
    if (list.value("cleared", Json()).is_number())
      cleared = "  cleared " + timeText(list.at("cleared").get<double>(), how_.now);
    const std::string missing = list.value("published", true) ? "" : "  not published yet";
    const size_t size = title.size() + 2 + bindings.size() + notes.size() + missing.size() + cleared.size();
    if (how_.width && size > *how_.width) {
      for (const std::string& line : wrapped(title, *how_.width))
        text_ += fmt::format("{}{}{}\n", style_.bold, line, style_.off);
      for (const std::string& line : wrapped("   " + bindings + notes + missing + cleared, *how_.width))
        text_ += line + "\n";
      return;
    }
    text_ += fmt::format("{}{}{}  {}{}{}{}{}{}{}{}{}\n", style_.bold, title, style_.off, bindings, style_.dim,
                         notes, style_.off, style_.red, missing, style_.off, style_.dim, cleared) +
             style_.off;
  }

  void addRemark(const std::string& remark) {
    for (size_t at = 0; !remark.empty() && at <= remark.size();) {
      const size_t end = std::min(remark.find('\n', at), remark.size());
      const std::string line = fmt::format("{}remark {}", rows_.indent(), remark.substr(at, end - at));
      for (const std::string& part : wrapped(line, how_.width.value_or(line.size())))
        text_ += fmt::format("{}{}{}\n", style_.dim, part, style_.off);
      at = end + 1;
    }
  }

  void addRule(const Json& rule) {
    addRemark(rule.value("remark", ""));
    const bool idle = packetsOf(rule, "in") + packetsOf(rule, "out") == 0;
    text_ += idle ? style_.dim : "";
    text_ += rows_.row(std::to_string(rule.at("sequence").get<uint32_t>()),
                       rule.at("text").get_ref<const std::string&>(), rule);
    text_ += idle ? style_.off : "";
    text_ += "\n";
    addFindings(rule);
  }

  /// What a look at all packets has shown of a rule or of a list as a whole, if there was one.
  void addFindings(const Json& of) {
    for (const Json& each : of.value("findings", Json::array())) {
      const std::string example = each.value("example", "");
      const std::string line = fmt::format("{}! {}{}", rows_.indent(), each.at("text").get<std::string>(),
                                           example.empty() ? "" : fmt::format(" (for example {})", example));
      for (const std::string& part : wrapped(line, how_.width.value_or(line.size())))
        text_ += fmt::format("{}{}{}\n", style_.yellow, part, style_.off);
    }
  }

  const TextStyle how_;
  const Style style_;
  const ListRows rows_;
  std::string text_;
};

}  // namespace

std::string listsText(const Json& document, const TextStyle& style) {
  ListsText text(document.at("lists"), style);
  for (const Json& list : document.at("lists")) text.add(list);
  for (const Json& list : document.at("undefined")) text.addUndefined(list);
  for (const Json& opening : document.value("open", Json::array())) {
    // Lists that are not defined are told above, with all places.
    if (opening.at("code") != "list-undefined") text.addOpen(opening);
  }
  std::string all = text.takeText();
  for (const Json& what : document.value("unchecked", Json::array()))
    all += fmt::format("not checked: {}\n", what.get<std::string>());
  return all;
}

}  // namespace Agent
