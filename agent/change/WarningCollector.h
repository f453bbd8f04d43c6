#pragma once

#include <agent/warnings/Warning.h>
#include <fmt/format.h>

#include <map>
#include <string_view>
#include <utility>

namespace Agent {

/// Collects warnings: a hundred of each code, and how many more there are. A configuration may have any
/// number of them, and nobody reads so many.
class WarningCollector {
 public:
  /// `text()` gives the text, and is only asked for one that is kept.
  template <class Text>
  void add(WarningCode code, const Place& place, const Text& text) {
    if (isKept(code)) warnings_.push_back({code, place, text()});
  }
  void add(const Warning& warning) {
    if (isKept(warning.code)) warnings_.push_back(warning);
  }
  Warnings take() {
    for (const auto& [code, count] : counts_) {
      if (count > most)
        warnings_.push_back({"more-warnings", {}, fmt::format("{} more of {}", count - most, code)});
    }
    return std::move(warnings_);
  }

 private:
  static constexpr size_t most = 100;

  bool isKept(WarningCode code) { return ++counts_[code.kind().code] <= most; }

  Warnings warnings_;
  std::map<std::string_view, size_t> counts_;
};

}  // namespace Agent
