#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Proof {

/// "rule 10", "rules 10, 20 and 30", "rules 10, 20, 30, 40 and 5 more". There is one at least.
std::string rulesText(const std::vector<uint32_t>& rules);

}  // namespace Proof
