#include <agent/config/Cursor.h>
#include <agent/config/Titles.h>
#include <agent/models/Lists.h>
#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace Models {

namespace {

/// The number that a name is; 0 when it is none.
uint32_t numberIn(const std::string& name) { return Config::decimal(name).value_or(0); }

/// Whether the names are numbers in the order of the rules.
bool areNumbered(const std::vector<DraftRule>& rules) {
  uint32_t last = 0;
  for (const auto& rule : rules) {
    const uint32_t number = numberIn(rule.name);
    if (number <= last) return false;
    last = number;
  }
  return true;
}

/// Remarks of several lines are several remarks.
void writeRemarks(const DraftRule& rule, Lines& lines, Report& report) {
  for (std::string_view remark : rule.remarks) {
    while (!remark.empty()) {
      const size_t end = std::min(remark.find('\n'), remark.size());
      const auto line = remark.substr(0, end);
      if (line.find_first_not_of(" \t\r") != std::string_view::npos)
        lines.add(fmt::format("   remark {}", line), rule.at, report);
      remark.remove_prefix(std::min(end + 1, remark.size()));
    }
  }
}

/// What becomes of packets that no rule matches.
void writeEnd(const DraftList& list, uint32_t number, Lines& lines, Report& report) {
  constexpr uint32_t highest = std::numeric_limits<uint32_t>::max() - 10;
  if (!list.rules.empty() && list.rules.back().isEverything) return;
  if (list.restPasses) {
    if (number > highest) return report.mistake(list.at, list.path, "room for a rule behind the last one");
    lines.add(fmt::format("   {} permit {}", number + 10, everything(list.type)), list.at, report);
  } else {
    report.warn(
        list.at, "implicit-end",
        fmt::format("{} does not say what becomes of a packet that no rule of it matches: it is dropped",
                    list.path));
  }
}

}  // namespace

void Lines::add(const std::string& line, At at, Report& report) {
  const bool isOne = std::none_of(line.begin(), line.end(), [](char c) {
    return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
  });
  if (!isOne) return report.mistake(at, "control characters", "a text without them");
  text_ += line + "\n";
  places_.push_back(at);
}

At Lines::placeOf(int line) const {
  if (places_.empty()) return {};
  return places_[std::min(static_cast<size_t>(std::max(line, 1)), places_.size()) - 1];
}

bool checkName(std::string_view name, const Found& found) {
  constexpr size_t longest = 255;
  if (Config::isName(name) && name.size() <= longest) return true;
  found.refuse("a name of printable ASCII characters without blanks");
  return false;
}

void write(DraftList list, Lines& lines, Report& report) {
  const bool hasEnd = !list.rules.empty() && list.rules.back().isEnd;
  if (hasEnd) list.rules.pop_back();  // every list drops what no rule matches
  const std::string title = Config::listTitle(list.type, list.name);
  const bool named = areNumbered(list.rules);
  lines.add("no " + title, list.at, report);
  lines.add(title, list.at, report);
  uint32_t number = 0;
  for (const auto& rule : list.rules) {
    number = rule.number ? rule.number : named ? numberIn(rule.name) : number + 10;
    if (!rule.number && !named) lines.add(fmt::format("   remark {}", rule.name), rule.at, report);
    writeRemarks(rule, lines, report);
    if (!rule.words.empty()) lines.add(fmt::format("   {} {}", number, rule.words), rule.at, report);
  }
  if (!hasEnd) writeEnd(list, number, lines, report);
}

void DraftBindings::add(const Config::BindingKey& key, const std::string& list, const Found& found,
                        Lines& lines) {
  if (!known_.insert(key).second) {
    return found.refuse(fmt::format("one {} list {} interface {}: a second one cannot be bound",
                                    Acl::stringValue(key.type), Acl::stringValue(key.direction),
                                    key.interface));
  }
  lines.add(fmt::format("interface {}", key.interface), found.node.at, found.report);
  lines.add(fmt::format("   {} access-group {} {}", Acl::stringValue(key.type), list,
                        Acl::stringValue(key.direction)),
            found.node.at, found.report);
}

}  // namespace Models
