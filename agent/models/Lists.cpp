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

/// Behind it there is no room for a further rule.
constexpr uint32_t highest = std::numeric_limits<uint32_t>::max() - 10;

/// Whether the names are numbers in the order of the rules, and there is room for one more if it is needed.
bool areNumbered(const DraftList& list) {
  uint32_t last = 0;
  for (const auto& rule : list.rules) {
    const uint32_t number = numberIn(rule.name);
    if (number <= last) return false;
    last = number;
  }
  return !list.restPasses || last <= highest;
}

/// A blank one has nothing to say.
void writeRemark(std::string_view remark, const DraftRule& rule, Lines& lines, Report& report) {
  if (remark.find_first_not_of(" \t\r") != std::string_view::npos)
    lines.add(fmt::format("   remark {}", remark), rule.where, report);
}

/// Remarks of several lines are several remarks.
void writeRemarks(const DraftRule& rule, Lines& lines, Report& report) {
  for (std::string_view remark : rule.remarks) {
    while (!remark.empty()) {
      const size_t end = std::min(remark.find('\n'), remark.size());
      writeRemark(remark.substr(0, end), rule, lines, report);
      remark.remove_prefix(std::min(end + 1, remark.size()));
    }
  }
}

/// What becomes of packets that no rule matches.
void writeEnd(const DraftList& list, uint32_t number, Lines& lines, Report& report) {
  if (!list.rules.empty() && list.rules.back().isEverything) return;
  if (list.restPasses) {
    lines.add(fmt::format("   {} permit {}", number + 10, everything(list.type)), list.where, report);
  } else {
    report.warn(
        list.where.at, "implicit-end",
        fmt::format("{} does not say what becomes of a packet that no rule of it matches: it is dropped",
                    list.where.path));
  }
}

}  // namespace

void Lines::add(const std::string& line, const Where& where, Report& report) {
  const bool isOne = std::none_of(line.begin(), line.end(), [](char c) {
    return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
  });
  if (!isOne)
    return report.mistake(where.at, fmt::format("control characters in {}", where.path),
                          "texts without them");
  text_ += line + "\n";
  places_.push_back(where.at);
}

bool Lines::begin(const Config::ListKey& list, const Where& where, Report& report) {
  if (lists_.emplace(list, where.at).second) return true;
  report.mistake(where.at,
                 fmt::format("{} a second time ({})", Config::listTitle(list.first, list.second), where.path),
                 "each list once in a document");
  return false;
}

void Lines::bind(const Config::BindingKey& key, const std::string& list, const Found& found) {
  if (!bindings_.insert(key).second) {
    return found.refuse(fmt::format("one {} list {} interface {}: a second one cannot be bound",
                                    Acl::stringValue(key.type), Acl::stringValue(key.direction),
                                    key.interface));
  }
  const Where where{found.node.at, found.path};
  add(fmt::format("interface {}", key.interface), where, found.report);
  add(fmt::format("   {} access-group {} {}", Acl::stringValue(key.type), list,
                  Acl::stringValue(key.direction)),
      where, found.report);
}

At Lines::placeOf(int line) const {
  if (places_.empty()) return {};
  return places_[std::min(static_cast<size_t>(std::max(line, 1)), places_.size()) - 1];
}

bool checkName(std::string_view name, const Found& found) {
  constexpr size_t longest = 255;
  if (Config::isName(name) && name.size() <= longest) return true;
  found.refuse(fmt::format("a name of 1 to {} printable ASCII characters without blanks", longest));
  return false;
}

bool checkListName(std::string_view name, const Found& found) {
  if (name != "standard" && name != "extended") return checkName(name, found);
  found.refuse("the name of a list, which this word is not");
  return false;
}

void write(DraftList list, Lines& lines, Report& report) {
  const bool hasEnd = !list.rules.empty() && list.rules.back().isEnd;
  if (hasEnd) list.rules.pop_back();  // every list drops what no rule matches
  if (!lines.begin({list.type, list.name}, list.where, report)) return;
  const std::string title = Config::listTitle(list.type, list.name);
  const bool named = areNumbered(list);
  lines.add("no " + title, list.where, report);
  lines.add(title, list.where, report);
  uint32_t number = 0;
  for (const auto& rule : list.rules) {
    number = rule.number ? rule.number : named ? numberIn(rule.name) : number + 10;
    if (!rule.number && !named) writeRemark(rule.name, rule, lines, report);
    writeRemarks(rule, lines, report);
    if (!rule.words.empty()) lines.add(fmt::format("   {} {}", number, rule.words), rule.where, report);
  }
  if (!hasEnd) writeEnd(list, number, lines, report);
}

}  // namespace Models
