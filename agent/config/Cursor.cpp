#include <agent/config/Cursor.h>
#include <agent/config/Mistake.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace Config {

namespace {

bool isControl(char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f; }

/// How many bytes the UTF-8 character has that a text begins with (RFC 3629, 4); 0 if it begins with none.
size_t utf8Length(std::string_view text) {
  const auto at = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const auto within = [&](size_t i, unsigned low, unsigned high) { return low <= at(i) && at(i) <= high; };
  const auto tail = [&](size_t i) { return within(i, 0x80, 0xbf); };
  const unsigned lead = at(0);
  if (lead < 0x80) return 1;
  if (0xc2 <= lead && lead <= 0xdf) return tail(1) ? 2 : 0;
  if (0xe0 <= lead && lead <= 0xef) {
    const unsigned low = lead == 0xe0 ? 0xa0 : 0x80;
    const unsigned high = lead == 0xed ? 0x9f : 0xbf;
    return within(1, low, high) && tail(2) ? 3 : 0;
  }
  if (0xf0 <= lead && lead <= 0xf4) {
    const unsigned low = lead == 0xf0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xf4 ? 0x8f : 0xbf;
    return within(1, low, high) && tail(2) && tail(3) ? 4 : 0;
  }
  return 0;
}

std::optional<uint32_t> numberOf(std::string_view digits, int base) {
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  if (error != std::errc() || end != digits.data() + digits.size()) return {};
  return value;
}

}  // namespace

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool isDigits(std::string_view word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) { return '0' <= c && c <= '9'; });
}

bool isName(std::string_view word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) { return '!' <= c && c <= '~'; });
}

std::optional<uint32_t> decimal(std::string_view word) {
  if (!isDigits(word) || (word.size() > 1 && word[0] == '0')) return {};
  return numberOf(word, 10);
}

std::optional<uint32_t> hexadecimal(std::string_view word) {
  if (!looksHexadecimal(word)) return {};
  return numberOf(word.substr(2), 16);
}

bool Cursor::lineIs(std::string_view line) {
  line_ = line;
  words_.clear();
  next_ = 0;
  problem_.reset();
  oddities_.clear();
  const auto control = std::find_if(line.begin(), line.end(), isControl);
  if (control != line.end()) return failAtByte(static_cast<size_t>(control - line.begin()));

  size_t start = std::string_view::npos;
  bool ascii = true;
  for (size_t i = 0; i <= line.size(); ++i) {
    if (i == line.size() || isBlank(line[i])) {
      if (start != std::string_view::npos) words_.push_back(line.substr(start, i - start));
      start = std::string_view::npos;
    } else {
      if (start == std::string_view::npos) start = i;
      ascii = ascii && static_cast<unsigned char>(line[i]) < 0x80;
    }
  }
  // A comment may have any encoding, because nothing of it is kept.
  if (ascii || words_[0][0] == '!' || words_[0][0] == '#') return true;
  for (size_t i = 0; i < line.size();) {
    const size_t length = utf8Length(line.substr(i));
    if (length == 0) return failAtByte(i);
    i += length;
  }
  return true;
}

bool Cursor::takeIf(std::string_view word) {
  if (peek() != word) return false;
  ++next_;
  return true;
}

std::string_view Cursor::rest() const {
  if (atEnd()) return {};
  const char* start = words_[next_].data();
  const char* stop = words_.back().data() + words_.back().size();
  return {start, static_cast<size_t>(stop - start)};
}

std::string Cursor::textFrom(size_t position) const {
  std::string text;
  for (size_t i = position; i < words_.size(); ++i) {
    if (i > position) text += ' ';
    text += words_[i];
  }
  return text;
}

bool Cursor::keyword(std::string_view word) { return takeIf(word) || fail(std::string(word)); }

bool Cursor::name(std::string_view what, std::string* out) {
  if (!isName(peek())) return fail(fmt::format("{}{}", what, atEnd() ? "" : " in printable ASCII"));
  *out = take();
  return true;
}

bool Cursor::number(std::string_view what, uint32_t low, uint32_t high, uint32_t* out) {
  const auto value = decimal(peek());
  if (!value || *value < low || *value > high) {
    const bool padded = isDigits(peek()) && peek().size() > 1 && peek()[0] == '0';
    return fail(fmt::format("{} {} to {}{}", what, low, high, padded ? " without leading zeros" : ""));
  }
  *out = *value;
  ++next_;
  return true;
}

bool Cursor::end() { return atEnd() || fail("the end of the line"); }

size_t Cursor::columnOf(size_t position) const {
  if (words_.empty()) return 1;
  const bool there = position < words_.size();
  const auto word = there ? words_[position] : words_.back();
  return static_cast<size_t>(word.data() - line_.data()) + (there ? 0 : word.size()) + 1;
}

bool Cursor::failAt(size_t position, std::string expected, std::string_view note) {
  problem_ = {columnOf(position), position < words_.size() ? quote(words_[position]) : "the end of the line",
              std::move(expected)};
  if (!note.empty()) problem_->found += fmt::format(" {}", note);
  return false;
}

bool Cursor::failAtByte(size_t offset) {
  problem_ = {offset + 1, fmt::format("byte 0x{:02x}", static_cast<unsigned char>(line_[offset])),
              "printable UTF-8 text"};
  return false;
}

}  // namespace Config
