#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace SmTest {
namespace {

using Velo::VeloAcl::InputSmScanState;

TEST(ScanState, APassThatIsAskedForRaisesTheGenerationOfItsPollAlone) {
  const struct {
    const uint64_t& (InputSmScanState::*asked)() const;
    void (InputSmScanState::*raise)();
  } rows[] = {
      {&InputSmScanState::copyInCountersCodefGeneration, &InputSmScanState::copyInCountersCodefGenerationInc},
      {&InputSmScanState::copyMacOutCountersCodefGeneration,
       &InputSmScanState::copyMacOutCountersCodefGenerationInc},
      {&InputSmScanState::copyIpOutCountersCodefGeneration,
       &InputSmScanState::copyIpOutCountersCodefGenerationInc},
      {&InputSmScanState::copyIp6OutCountersCodefGeneration,
       &InputSmScanState::copyIp6OutCountersCodefGenerationInc},
  };
  const auto state = MemSlab::make<InputSmScanState>();
  std::vector<uint64_t> expected(std::size(rows));
  for (size_t i = 0; i < std::size(rows); ++i) {
    ((*state).*rows[i].raise)();
    ++expected[i];
    std::vector<uint64_t> asked;
    for (const auto& row : rows) asked.push_back(((*state).*row.asked)());
    EXPECT_EQ(asked, expected);
  }
}

}  // namespace
}  // namespace SmTest
