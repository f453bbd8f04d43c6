#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

// What all commands have in common, by the real program.

namespace {

using namespace TestSupport;
using testing::AllOf;
using testing::HasSubstr;

class ProgramTest : public testing::Test {
 protected:
  ProgramTest() {
    writeFile(acl_, "ip access-list A\n   10 permit udp any any\ninterface eth1\n   ip access-group A in\n");
    const Bytes udp = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(10);
    const Bytes tcp = frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2);
    writeFile(pcap_, pcapBytes({{1, 0, udp, static_cast<uint32_t>(udp.size())},
                                {2, 0, tcp, static_cast<uint32_t>(tcp.size())}}));
  }

  /// Of a capture that is replayed through a list.
  std::vector<std::string> usually(std::vector<std::string> more) const {
    more.insert(more.begin(), {"replay", "--config", acl_, "--port", "eth1=" + pcap_});
    return more;
  }
  Ran usual(const std::vector<std::string>& more,
            const std::map<std::string, std::string>& environment = {}) const {
    return runVelo(usually(more), environment);
  }

  const TempDir dir_;
  const std::string acl_ = dir_ / "a.acl", pcap_ = dir_ / "in.pcap";
};

TEST_F(ProgramTest, HelpNamesAllCommandsAndEachHasItsOwn) {
  const Ran general = runVelo({"--help"});
  EXPECT_EQ(general.status, 0);
  EXPECT_THAT(general.out, HasSubstr("Exit status"));
  std::istringstream names(runVelo({"complete", "--", ""}).out);
  std::set<std::string> helps;
  for (std::string name; std::getline(names, name);) {
    EXPECT_THAT(general.out, HasSubstr("\n  " + name + " "));
    const Ran own = runVelo({name, "--help"});
    EXPECT_EQ(own.status, 0) << name;
    EXPECT_EQ(own.err, "") << name;
    EXPECT_THAT(own.out, AllOf(HasSubstr("Usage: velo " + name), HasSubstr("Exit status: 0"))) << name;
    EXPECT_TRUE(helps.insert(own.out).second) << name;
  }
  EXPECT_GE(helps.size(), 20u);
  EXPECT_EQ(general.out.find("  complete "), general.out.npos) << "shells know it, people need not";
}

TEST_F(ProgramTest, BadUsageOfAnyCommandEndsWithTwoAndSaysWhat) {
  const struct {
    const char* why;
    std::vector<std::string> arguments;
    const char* message;
  } rows[] = {
      {"no command", {}, "A command is required"},
      {"an unknown command", {"forward"}, "forward"},
      {"an unknown option", usually({"--fast"}), "--fast"},
      {"a trace that is none", usually({"--trace", "Velo::Acl/12"}), "--trace"},
      {"no plugin there", usually({"--plugin", dir_ / "none.so"}), "none.so: there is no such file"},
      {"a plugin that is a text", usually({"--plugin", acl_}), "a.acl: not a plugin"},
      {"a library that is no plugin",
       usually({"--plugin", std::string(VELO_BIN_DIR) + "/libvelo-platform.so"}), "not a plugin"},
      {"no plugin for the messages", {"log-messages", "--plugin", dir_ / "none.so"}, "there is no such file"},
      {"a tail on standard output", {"tail", "--write", "-"}, "--write: - is no file to write to"},
  };
  for (const auto& row : rows) {
    const Ran ran = runVelo(row.arguments);
    EXPECT_EQ(ran.status, 2) << row.why << ": " << ran.err;
    EXPECT_THAT(ran.err, HasSubstr(row.message)) << row.why;
    EXPECT_EQ(ran.out, "") << row.why;
  }
}

TEST_F(ProgramTest, TracesGoToStandardError) {
  const Ran option = usual({"--trace", "Velo::Acl/0"});
  EXPECT_EQ(option.status, 0);
  EXPECT_THAT(option.err, AllOf(HasSubstr("Pkt1: Matched acl A, rule "),
                                HasSubstr("Pkt2: No match on intf eth1, default action is drop")));
  const Ran environment = usual({}, {{"VELO_TRACE", "Velo::Acl/0"}});
  EXPECT_EQ(environment.status, 0);
  EXPECT_THAT(environment.err, HasSubstr("Pkt1: Matched acl A, rule "));
  EXPECT_EQ(usual({}, {{"VELO_TRACE", "rubbish"}}).status, 2);
  EXPECT_EQ(usual({}).err, "");
}

TEST_F(ProgramTest, LogMessagesPrintsTheCatalogue) {
  const Ran text = runVelo({"log-messages"});
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.err, "");
  const Ran json = runVelo({"log-messages", "--json"});
  ASSERT_EQ(json.status, 0) << json.err;
  const auto document = nlohmann::ordered_json::parse(json.out);
  EXPECT_TRUE(document.contains("version"));
  const auto all = document.at("messages");
  std::vector<std::string> names;
  for (const auto& message : all) {
    names.push_back(message["name"]);
    EXPECT_THAT(text.out, HasSubstr(message["name"].get<std::string>() + "\n"));
    EXPECT_THAT(text.out, HasSubstr(message["explanation"].get<std::string>()));
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"ACL_IPACCESS", "ACL_IPACCESS2", "ACL_IP6ACCESS", "ACL_MACACCESS",
                                            "ACL_DISCONTIG_MASK", "ACL_KERNEL_TABLE_MANAGEMENT_FAILURE"}));
  EXPECT_EQ(all[0]["severity"], 6);
  EXPECT_EQ(json.out.find('\x01'), std::string::npos) << "a marker is not a text";
  EXPECT_EQ(text.out.find('\x01'), std::string::npos);
}

}  // namespace
