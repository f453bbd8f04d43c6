#include <agent/proof/RulesText.h>
#include <fmt/format.h>

namespace Proof {

std::string rulesText(const std::vector<uint32_t>& rules) {
  constexpr size_t most = 5;
  if (rules.size() == 1) return fmt::format("rule {}", rules.front());
  const bool some = rules.size() > most;
  const size_t told = some ? most - 1 : rules.size() - 1;
  return fmt::format("rules {} and {}",
                     fmt::join(rules.begin(), rules.begin() + static_cast<long>(told), ", "),
                     some ? fmt::format("{} more", rules.size() - told) : fmt::format("{}", rules.back()));
}

}  // namespace Proof
