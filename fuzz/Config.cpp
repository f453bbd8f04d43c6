// A configuration text is read, or refused with the places of its mistakes; what was read can be typed again.

#include "../tests/agent/config/RandomText.h"
#include "Target.h"

#include <agent/config/Reader.h>
#include <agent/config/Writer.h>

#include <algorithm>

namespace {

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string someText(Fuzz::Dice& dice) {
  if (!dice.once(16)) {
    std::string text = Config::randomText(dice, dice.once(2));
    while (dice.more() && dice.once(2)) text += Config::randomText(dice, false);
    return text;
  }
  std::string text;
  while (dice.more()) text += static_cast<char>(dice.below(256));
  return text;
}

void requirePlaces(const Config::Result& result, const std::string& text) {
  const auto lines = linesOf(text);
  int last = 0;
  for (const Config::Mistake& mistake : result.mistakes) {
    const auto where = [&] { return mistake.str() + "\n" + text; };
    Fuzz::require(mistake.file == "t" && mistake.line > last, where);
    last = mistake.line;
    Fuzz::require(static_cast<size_t>(mistake.line) <= lines.size(), where);
    const size_t size = lines[static_cast<size_t>(mistake.line) - 1].size();
    Fuzz::require(mistake.column >= 1 && static_cast<size_t>(mistake.column) <= size + 1, where);
    Fuzz::require(!mistake.found.empty() && !mistake.expected.empty(), where);
    const std::string shown = mistake.str();
    Fuzz::require(std::none_of(shown.begin(), shown.end(),
                               [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }),
                  where);
  }
}

}  // namespace

void Fuzz::run(Dice& dice) {
  const std::string text = someText(dice);
  const Config::Result result = Config::read({{"t", text}});
  require(result.model.has_value() == result.mistakes.empty(), text);
  requirePlaces(result, text);
  if (!result.model) return;
  const std::string again = Config::textOf(*result.model);
  const Config::Result read = Config::read({{"again", again}});
  require(read.mistakes.empty(), [&] { return read.mistakes.front().str() + "\n" + again + "of\n" + text; });
  require(read.model == result.model, [&] { return again + "reads as another model than\n" + text; });

  // A text in two parts is the same as in one.
  const size_t half = text.find('\n', text.size() / 2);
  if (half == std::string::npos) return;
  const Config::Result parts = Config::read({{"t", text.substr(0, half + 1)}, {"u", text.substr(half + 1)}});
  require(parts.model == result.model, text);
}
