#pragma once

#include <agent/show/Text.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// Breaks a text into lines of at most `width` octets, at blanks if there are any. All lines but the first
/// are indented.
std::vector<std::string> wrapped(std::string_view text, size_t width);

/// Packets of a rule or implicit drop in a document, by direction ("in", "out").
uint64_t packetsOf(const nlohmann::ordered_json& counted, const char* direction);

/// A rate for people, with three digits at least: "12", "3.45k", "678M". Up to 999 it is rounded up, so that
/// what happens seldom is not shown as never.
std::string rateText(double aSecond);

/// Lays out the rules of lists with what each of them counted: number, rule, and a column for each count.
/// Where lines are too narrow for that the counts stand below the rule.
class ListRows {
 public:
  /// The columns are as wide as these lists need.
  ListRows(const nlohmann::ordered_json& lists, const TextStyle& style);

  /// The line with the names of the columns, and a line end; empty when there are no columns.
  std::string heading() const;
  /// A rule, or the implicit drop without a number: one or more lines, without a line end.
  std::string row(std::string_view number, std::string_view rule,
                  const nlohmann::ordered_json& counted) const;
  /// What stands before a text that has no number.
  std::string indent() const { return std::string(numberWidth_ + 1, ' '); }

 private:
  struct Column {
    std::string_view heading;
    std::string (*cell)(const nlohmann::ordered_json& counted, const TextStyle& style);
    size_t width;
  };
  void takeWidths(const nlohmann::ordered_json& counted);
  size_t columnsWidth() const;
  std::string stacked(std::string_view number, std::string_view rule,
                      const nlohmann::ordered_json& counted) const;

  const TextStyle style_;
  std::vector<Column> columns_;
  size_t numberWidth_ = 10;
  size_t ruleWidth_ = 38;
  bool stacked_ = false;
};

}  // namespace Agent
