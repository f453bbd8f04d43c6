#include <agent/client/WatchView.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace Agent {

namespace {

constexpr char escape = '\x1b';

/// The length of the control sequence that a text begins with (ECMA-48, 5.4), 0 when it is none.
size_t sequenceLength(std::string_view text) {
  if (!text.starts_with("\x1b[")) return 0;
  size_t end = 2;
  while (end < text.size() && (text[end] < '@' || text[end] > '~')) ++end;
  return std::min(end + 1, text.size());
}

std::string withoutColours(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    const size_t skip = sequenceLength(text);
    if (skip == 0) plain += text.front();
    text.remove_prefix(std::max<size_t>(skip, 1));
  }
  return plain;
}

/// Cuts off what does not fit, and keeps the colours.
std::string clipped(std::string_view text, size_t columns) {
  std::string cut;
  for (size_t used = 0; !text.empty();) {
    const size_t sequence = sequenceLength(text);
    if (sequence > 0) cut += text.substr(0, sequence);
    // An octet that continues a character takes no place of its own (RFC 3629, 3).
    const bool continues = (static_cast<unsigned char>(text.front()) & 0xc0) == 0x80;
    if (sequence == 0 && (used < columns || (continues && used == columns))) {
      cut += text.front();
      used += continues ? 0 : 1;
    }
    text.remove_prefix(std::max<size_t>(sequence, 1));
  }
  return cut;
}

struct KeyCode {
  std::string_view sent;
  WatchKey key;
};
constexpr KeyCode codes[] = {
    {"\x1b[A", WatchKey::up},      {"\x1bOA", WatchKey::up},    {"k", WatchKey::up},
    {"\x1b[B", WatchKey::down},    {"\x1bOB", WatchKey::down},  {"j", WatchKey::down},
    {"\x1b[5~", WatchKey::pageUp}, {"b", WatchKey::pageUp},     {"\x1b[6~", WatchKey::pageDown},
    {" ", WatchKey::pageDown},     {"\x1b[H", WatchKey::begin}, {"\x1b[1~", WatchKey::begin},
    {"g", WatchKey::begin},        {"\x1b[F", WatchKey::end},   {"\x1b[4~", WatchKey::end},
    {"G", WatchKey::end},          {"n", WatchKey::next},       {"\t", WatchKey::next},
    {"p", WatchKey::previous},     {"s", WatchKey::sort},       {"u", WatchKey::unused},
    {"q", WatchKey::quit},         {"Q", WatchKey::quit},
};

/// Whether more octets may make a key of these.
bool isBeginning(std::string_view input) {
  return input == "\x1b" || input == "\x1bO" ||
         (input.starts_with("\x1b[") && sequenceLength(input) == input.size() &&
          (input.size() == 2 || input.back() < '@'));
}

}  // namespace

std::vector<WatchKey> takeKeys(std::string& input) {
  std::vector<WatchKey> keys;
  std::string_view left = input;
  while (!left.empty() && !isBeginning(left)) {
    const auto* code = std::find_if(std::begin(codes), std::end(codes),
                                    [left](const KeyCode& each) { return left.starts_with(each.sent); });
    if (code != std::end(codes)) {
      keys.push_back(code->key);
      left.remove_prefix(code->sent.size());
    } else {
      left.remove_prefix(std::max<size_t>(sequenceLength(left), left.front() == escape ? 2 : 1));
    }
  }
  input = std::string(left);
  return keys;
}

void WatchView::textIs(std::string_view text) {
  lines_.clear();
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    Line line{std::string(text.substr(0, end)), {}};
    const std::string plain = withoutColours(line.text);
    if (!plain.empty() && plain.front() != ' ') line.section = plain.substr(0, plain.find("  "));
    lines_.push_back(std::move(line));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  const auto section = std::find_if(lines_.begin(), lines_.end(), [this](const Line& line) {
    return !section_.empty() && line.section == section_;
  });
  // When its section has gone it stays at the line that it was at.
  if (section != lines_.end()) top_ = static_cast<size_t>(section - lines_.begin()) + behind_;
  placeIs(top_);
}

void WatchView::placeIs(size_t line) {
  top_ = lines_.empty() ? 0 : std::min(line, lines_.size() - 1);
  size_t at = top_;
  while (at > 0 && lines_[at].section.empty()) --at;
  section_ = lines_.empty() ? "" : lines_[at].section;
  behind_ = top_ - at;
}

size_t WatchView::sectionFrom(size_t line, bool forward) const {
  for (size_t at = line; forward ? ++at < lines_.size() : at-- > 0;) {
    if (!lines_[at].section.empty()) return at;
  }
  return line;
}

void WatchView::move(WatchKey key, size_t shown) {
  const size_t first = firstOf(shown), last = lastFirstOf(shown);
  const size_t page = std::max<size_t>(shown, 2) - 1;
  const auto back = [first](size_t by) { return first > by ? first - by : 0; };
  switch (key) {
    case WatchKey::up:
      return placeIs(back(1));
    case WatchKey::down:
      return placeIs(std::min(first + 1, last));
    case WatchKey::pageUp:
      return placeIs(back(page));
    case WatchKey::pageDown:
      return placeIs(std::min(first + page, last));
    case WatchKey::begin:
      return placeIs(0);
    case WatchKey::end:
      return placeIs(last);
    case WatchKey::next:
      if (first < last) placeIs(sectionFrom(first, true));
      return;
    case WatchKey::previous:
      return placeIs(sectionFrom(first, false));
    case WatchKey::sort:
    case WatchKey::unused:
    case WatchKey::quit:
      return;
  }
}

std::vector<std::string> WatchView::lines(size_t shown, size_t columns) const {
  std::vector<std::string> some;
  for (size_t at = firstOf(shown); at < lines_.size() && some.size() < shown; ++at)
    some.push_back(clipped(lines_[at].text, columns));
  return some;
}

std::string WatchView::placeText(size_t shown) const {
  if (lines_.empty()) return "0 of 0";
  const size_t first = firstOf(shown);
  return fmt::format("{}-{} of {}", first + 1, std::min(first + shown, lines_.size()), lines_.size());
}

}  // namespace Agent
