#include <agent/core/Core.h>
#include <agent/forward/Forwarder.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "../../support/Frames.h"
#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <fstream>

namespace {

using Agent::Core;
using testing::HasSubstr;
using TestSupport::runVelo;

const std::string binFolder = VELO_BIN_DIR;
const std::string listPlugin = binFolder + "/VeloAcl.so", counterPlugin = binFolder + "/DscpCounter.so";

class PluginsTest : public testing::Test {
 protected:
  const TestSupport::TempDir dir_;
};

TEST_F(PluginsTest, OneBesideTheListsIsOpenedClosedAndOpenedAgain) {
  Core core;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(core.loadPlugin(listPlugin, {counterPlugin}), std::nullopt);
    EXPECT_EQ(core.manager().plugins().size(), 2u);
    EXPECT_EQ(core.manager().pipeline()->stepCount(), 3u);
    ASSERT_EQ(core.unloadPlugin(), std::nullopt);
    EXPECT_EQ(core.manager().pipeline()->stepCount(), 0u);
    EXPECT_EQ(Velo::DefaultPluginLoader().plugins().size(), 0u);
  }
}

TEST_F(PluginsTest, WhenOneIsRefusedNoneIsLoaded) {
  Core core;
  EXPECT_THAT(core.loadPlugin(listPlugin, {counterPlugin, counterPlugin}).value_or(""),
              HasSubstr("the plugin is loaded already"));
  EXPECT_EQ(core.manager().plugins().size(), 0u);
  EXPECT_EQ(Velo::DefaultPluginLoader().plugins().size(), 0u);
}

TEST_F(PluginsTest, OneThatWasBuiltAgainstAnotherInterfaceIsRefused) {
  std::string other = TestSupport::readFile(counterPlugin);
  const std::string mark = Plugin::Impl::interfaceMark;
  const size_t at = other.find(mark);
  ASSERT_NE(at, other.npos);
  other[at + mark.size() - 1] ^= 1;
  std::ofstream(dir_ / "Other.so", std::ios::binary) << other;
  Core core;
  EXPECT_THAT(core.loadPlugin(listPlugin, {dir_ / "Other.so"}).value_or(""),
              HasSubstr("was built against interface version"));
}

/// Whoever names one does not leave packets unfiltered.
TEST_F(PluginsTest, ACommandLineLoadsItBesideTheLists) {
  std::vector<TestSupport::Captured> frames;
  uint64_t second = 0;
  for (const int dscp : {46, 46, 10, 0, 63}) {
    const auto tos = static_cast<uint8_t>(dscp << 2);
    frames.push_back({++second, 0,
                      TestSupport::frame().eth().ip4("192.0.2.1", "198.51.100.7").tos(tos).udp(1, 2).bytes(),
                      0});
    frames.back().wire = static_cast<uint32_t>(frames.back().frame.size());
  }
  frames.push_back(
      {++second, 0,
       TestSupport::frame().eth().ip6("2001:db8::1", "2001:db8::2").trafficClass(40 << 2).udp(1, 2).bytes(),
       0});
  frames.back().wire = static_cast<uint32_t>(frames.back().frame.size());
  TestSupport::writeFile(dir_ / "in.pcap", TestSupport::pcapBytes(frames));
  TestSupport::writeFile(
      dir_ / "a.acl",
      std::string_view("ip access-list A\n 10 deny udp any any dscp ef\n 20 permit ip any any\n"
                       "interface eth1\n ip access-group A in\n"));
  const auto ran = runVelo({"replay", "--config", dir_ / "a.acl", "--port", "eth1=" + (dir_ / "in.pcap"),
                            "--patch", "eth1,eth2", "--json", "--plugin", counterPlugin});
  ASSERT_EQ(ran.status, 0) << ran.err;
  const nlohmann::ordered_json report = nlohmann::ordered_json::parse(ran.out);
  EXPECT_EQ(report.at("dropped"), 2);
  EXPECT_EQ(
      report.at("drops").at("Dscp"),
      nlohmann::ordered_json::parse(R"({"DscpCounter": {"63": 1, "AF11": 1, "CS0": 1, "CS5": 1, "EF": 2}})"));
}

TEST_F(PluginsTest, AListPluginThatIsNamedTakesThePlaceOfTheUsualOne) {
  const auto ran = runVelo({"log-messages", "--plugin", dir_ / "VeloAcl.so", "--plugin", counterPlugin});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err, HasSubstr("VeloAcl.so: there is no such file"));
  EXPECT_EQ(runVelo({"log-messages", "--plugin", counterPlugin, "--plugin", listPlugin}).status, 0);
}

}  // namespace
