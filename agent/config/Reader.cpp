#include <agent/config/Cursor.h>
#include <agent/config/NotText.h>
#include <agent/config/Reader.h>
#include <agent/config/Statements.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace Config {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

bool isComment(std::string_view word) { return word.starts_with('!') || word.starts_with('#'); }

/// The mistakes of all texts; late ones go between the others, in the order of the texts.
class Mistakes {
 public:
  Mistakes(const std::vector<Source>& sources, size_t most) : sources_(sources), most_(most) {}

  bool areMost() const { return found_.size() >= most_; }
  bool none() const { return found_.empty(); }
  void add(LinePlace place, const Cursor::Problem& problem) {
    found_.emplace_back(place, Mistake{sources_.at(place.text).name, place.line,
                                       static_cast<int>(problem.column), problem.found, problem.expected});
  }
  std::vector<Mistake> take() {
    std::stable_sort(found_.begin(), found_.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Mistake> all;
    for (auto& [place, mistake] : found_) {
      if (all.size() < most_) all.push_back(std::move(mistake));
    }
    return all;
  }

 private:
  const std::vector<Source>& sources_;
  const size_t most_;
  std::vector<std::pair<LinePlace, Mistake>> found_;
};

void readText(const Source& source, size_t index, Cursor& at, Statements& statements, Mistakes& mistakes) {
  std::string_view text = source.text;
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  if (const auto what = notText(text); !what.empty()) {
    return mistakes.add({index, 1}, {1, std::string(what), "a configuration text"});
  }
  for (int number = 1; !text.empty() && !mistakes.areMost(); ++number) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    const LinePlace place{index, number};
    if (!at.lineIs(line) || (!at.atEnd() && !isComment(at.peek()) && !statements.take(at, place))) {
      mistakes.add(place, *at.problem());
    } else if (!at.oddities().empty()) {
      statements.noticeOddities(at);
    }
  }
}

}  // namespace

Result read(const std::vector<Source>& sources, Model start, size_t mostMistakes) {
  Cursor at;
  std::vector<std::string> names;
  for (const Source& source : sources) names.push_back(source.name);
  Statements statements(std::move(start), names);
  Mistakes mistakes(sources, mostMistakes);
  for (size_t i = 0; i < sources.size(); ++i) readText(sources[i], i, at, statements, mistakes);
  if (!mistakes.areMost()) {
    for (const auto& late : statements.finish()) mistakes.add(late.place, late.problem);
  }
  Result result;
  if (mistakes.none()) result.model = statements.takeModel();
  result.mistakes = mistakes.take();
  return result;
}

}  // namespace Config
