#include "classbench/Table.h"

#include <fmt/format.h>

#include <algorithm>

namespace Bench {

namespace {

template <class... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

int digitsOf(double value) { return value < 100 ? 1 : 0; }

std::string textOf(const Cell& cell) {
  return std::visit(
      Overloaded{[](std::monostate) { return std::string("-"); },
                 [](const std::string& text) { return text; },
                 [](Number number) { return fmt::format("{:.{}f}", number.value, number.digits); },
                 [](const Spread& s) {
                   return fmt::format("{:.{}f} ({:.{}f}-{:.{}f})", s.median, digitsOf(s.median), s.low,
                                      digitsOf(s.low), s.high, digitsOf(s.high));
                 },
                 [](Verdict verdict) { return std::string(verdict.met ? "met" : "missed"); }},
      cell);
}

nlohmann::json jsonOf(const Cell& cell) {
  using Json = nlohmann::json;
  return std::visit(
      Overloaded{[](std::monostate) { return Json(); }, [](const std::string& text) { return Json(text); },
                 [](Number number) { return Json(number.value); },
                 [](const Spread& s) {
                   return Json{{"median", s.median}, {"p10", s.low}, {"p90", s.high}};
                 },
                 [](Verdict verdict) { return Json(verdict.met); }},
      cell);
}

}  // namespace

std::string Table::text(bool coloured) const {
  std::vector<size_t> widths;
  for (const auto& heading : headings_) widths.push_back(heading.size());
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], textOf(row[i]).size());
  }
  const auto line = [&](const auto& cells, const auto& print) {
    std::string made;
    for (size_t i = 0; i < cells.size(); ++i) {
      made += i == 0 ? fmt::format("{:<{}}", print(cells[i]), widths[i])
                     : fmt::format("  {:>{}}", print(cells[i]), widths[i]);
    }
    return made + "\n";
  };
  std::string all = title_ + "\n";
  if (!rows_.empty()) all += line(headings_, [](const std::string& heading) { return heading; });
  for (const auto& row : rows_) {
    std::string made = line(row, textOf);
    const bool missed = std::any_of(row.begin(), row.end(), [](const Cell& cell) {
      const auto* verdict = std::get_if<Verdict>(&cell);
      return verdict && !verdict->met;
    });
    if (coloured && missed) made = "\x1b[31m" + made.substr(0, made.size() - 1) + "\x1b[0m\n";
    all += made;
  }
  for (const auto& note : notes_) all += note + "\n";
  return all;
}

nlohmann::json Table::json() const {
  nlohmann::json rows = nlohmann::json::array();
  for (const auto& row : rows_) {
    nlohmann::json object = nlohmann::json::object();
    for (size_t i = 0; i < row.size(); ++i) object[headings_[i]] = jsonOf(row[i]);
    rows.push_back(std::move(object));
  }
  return {{"title", title_}, {"rows", std::move(rows)}, {"notes", notes_}};
}

}  // namespace Bench
