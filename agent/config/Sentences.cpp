#include <agent/config/Nearest.h>
#include <agent/config/Sentences.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace Config {

std::string noSuch(std::string_view kind, std::string_view name, std::span<const std::string_view> known) {
  return orNearest(fmt::format("there is no {} {}", kind, name), name, known);
}

std::string noSuchRule(std::string_view list, uint32_t number, std::span<const uint32_t> numbers) {
  std::optional<uint32_t> below, above;
  for (const uint32_t each : numbers) {
    if (each < number) below = std::max(below.value_or(0), each);
    if (each > number) above = std::min(above.value_or(each), each);
  }
  std::string near;
  if (below) near = std::to_string(*below);
  if (above) near += (below ? " or " : "") + std::to_string(*above);
  return orMeant(fmt::format("{} has no rule {}", list, number), near);
}

std::string ruleGivenTwice(const Rule& first) {
  return fmt::format("rule {} is given a second time: the first, {}, is lost", common(first).sequence,
                     common(first).text.view());
}

}  // namespace Config
