#include <MemSlab/Slab.h>
#include <gtest/gtest.h>

namespace {

/// Fails the run when objects are left alive after the last test.
class NothingLeft : public testing::Environment {
 public:
  void TearDown() override {
    EXPECT_EQ(MemSlab::liveReport(), "") << "objects are still alive after the tests";
  }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::AddGlobalTestEnvironment(new NothingLeft);
  return RUN_ALL_TESTS();
}
