#include <agent/config/Cursor.h>
#include <agent/config/Reader.h>
#include <agent/config/Statements.h>

#include <string_view>

namespace Config {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

bool isComment(std::string_view word) { return word.starts_with('!') || word.starts_with('#'); }

void readText(const Source& source, Cursor& at, Statements& statements, std::vector<Mistake>& mistakes,
              size_t mostMistakes) {
  std::string_view text = source.text;
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  for (int number = 1; !text.empty() && mistakes.size() < mostMistakes; ++number) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (at.lineIs(line) && (at.atEnd() || isComment(at.peek()) || statements.take(at))) continue;
    const auto& problem = *at.problem();
    mistakes.push_back(
        {source.name, number, static_cast<int>(problem.column), problem.found, problem.expected});
  }
}

}  // namespace

Result read(const std::vector<Source>& sources, Model start, size_t mostMistakes) {
  Result result;
  Cursor at;
  Statements statements(std::move(start));
  for (const auto& source : sources) readText(source, at, statements, result.mistakes, mostMistakes);
  if (result.mistakes.empty()) result.model = statements.takeModel();
  return result;
}

}  // namespace Config
