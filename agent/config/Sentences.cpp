#include <agent/config/Nearest.h>
#include <agent/config/Sentences.h>
#include <fmt/format.h>

namespace Config {

std::string noSuch(std::string_view kind, std::string_view name, std::span<const std::string_view> known) {
  return orNearest(fmt::format("there is no {} {}", kind, name), name, known);
}

std::string ruleGivenTwice(const Rule& first) {
  return fmt::format("rule {} is given a second time: the first, {}, is lost", common(first).sequence,
                     common(first).text.view());
}

}  // namespace Config
