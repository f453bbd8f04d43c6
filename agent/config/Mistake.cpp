#include <agent/config/Mistake.h>
#include <fmt/format.h>

namespace Config {

namespace {

constexpr size_t longestQuote = 60;

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

}  // namespace

std::string Mistake::str() const {
  return fmt::format("{}:{}:{}: {}", file, line, column, mistakeText(found, expected));
}

std::vector<std::string> textsOf(const std::vector<Mistake>& mistakes) {
  std::vector<std::string> texts;
  for (const Mistake& mistake : mistakes) texts.push_back(mistake.str());
  return texts;
}

std::string mistakeText(std::string_view found, std::string_view expected) {
  return fmt::format("found {}, expected {}", found, expected);
}

std::string quote(std::string_view word) {
  if (word.size() <= longestQuote) return fmt::format("\"{}\"", word);
  size_t end = longestQuote;
  while (end > 0 && isContinuationByte(word[end])) --end;
  return fmt::format("\"{}...\"", word.substr(0, end));
}

std::string anyOf(const std::vector<std::string_view>& choices) {
  std::string text;
  for (size_t i = 0; i < choices.size(); ++i) {
    if (i > 0) text += i + 1 == choices.size() ? " or " : ", ";
    text += choices[i];
  }
  return text;
}

}  // namespace Config
