#include <agent/models/Writer.h>
#include <agent/models/Yang.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "../support/TestModules.h"
#include "Support.h"

namespace Models {
namespace {

namespace fs = std::filesystem;

class Validation : public testing::Test {
 protected:
  void SetUp() override {
    if (!whyNoModules(dir_).empty()) GTEST_SKIP() << whyNoModules(dir_);
  }
  /// The mistakes of a document with the modules of the test, a line each; without them there are none.
  std::string mistakesOf(const std::string& document) const {
    const auto usual = read({{"t", document}});
    EXPECT_TRUE(usual.model) << usual.mistakes.front().str();
    std::string all;
    for (const auto& mistake : read({{"t", document}}, {}, SIZE_MAX, {dir_}).mistakes)
      all += mistake.str() + "\n";
    return all;
  }

  const TestSupport::TestModules modules_;
  const std::string dir_ = modules_.dir();
};

#define ACLS "/ietf-access-control-list:acls"

/// A document with one entry in one list, which the modules allow unless the entry or the list is changed.
std::string aDocument(const std::string& ace, const std::string& more = "", const std::string& name = "A") {
  return fmt::format(
      "{{\"ietf-access-control-list:acls\": {{\n \"acl\": [{{\"name\": \"{}\", \"type\": \"ipv4-acl-type\", "
      "\"aces\": {{\"ace\": [\n  {}]}}}}]{}}}}}",
      name, ace, more);
}
constexpr const char* acePath = ACLS "/acl[name='A']/aces/ace[name='1']";

TEST_F(Validation, TellsWhatTheModulesDoNotAllow) {
  const std::string goodEnd = R"("actions": {"forwarding": "accept"}})";
  const std::string good = R"({"name": "1", "matches": {"ipv4": {"protocol": 6}}, )" + goodEnd;
  const std::string bound =
      ",\n \"attachment-points\": {\"interface\": [{\"interface-id\": \"e1\", "
      "\"ingress\": {\"acl-sets\": {\"acl-set\": [{\"name\": \"A\"}]}}}]}";
  const struct {
    const char* why;
    std::string document, mistakes;
  } rows[] = {
      {"a right one", aDocument(good), ""},
      {"what the interface refers to is elsewhere", aDocument(good, bound), ""},
      {"a value out of the range that the module has",
       aDocument(R"({"name": "1", "matches": {"ipv4": {"protocol": 99}}, )" + goodEnd),
       fmt::format(
           "t:3:38: found 99 at {}/matches/ipv4/protocol, expected what its module allows: Unsatisfied range - value \"99\" "
           "is out of the allowed range\n",
           acePath)},
      {"a key that is too long, and another mistake behind it",
       aDocument(R"({"name": "1", "matches": {"ipv4": {"protocol": 99}}, )" + goodEnd, "", "LONGER"),
       "t:2:11: found \"LONGER\" at " ACLS
       "/name, expected what its module allows: Unsatisfied length - string \"LONGER\" length is "
       "not allowed\n"},
      {"what this module does not have",
       aDocument(R"({"name": "1", "matches": {"ipv4": {"dscp": 1}}, )" + goodEnd),
       fmt::format("t:3:38: found 1 at {}/matches/ipv4/dscp, expected what its module has there\n", acePath)},
      {"a number that should be a text, where the configuration is not looked at",
       aDocument(R"({"name": "1", "statistics": {"matched-packets": 5}, )" + goodEnd),
       fmt::format("t:3:32: found 5 at {}/statistics/matched-packets, expected a text\n", acePath)},
      {"of state there may be a part",
       aDocument(R"({"name": "1", "statistics": {"matched-packets": "5"}, )" + goodEnd), ""},
      {"a condition between leaves, seen when all is there",
       aDocument(R"({"name": "1", "matches": {"ipv4": {"protocol": 17}}, )" + goodEnd),
       fmt::format("t:3:38: found {}/matches/ipv4/protocol as it is, expected what its module allows: Must "
                   "condition \". != 17\" not satisfied\n",
                   acePath)},
  };
  for (const auto& row : rows) EXPECT_EQ(mistakesOf(row.document), row.mistakes) << row.why;
}

TEST_F(Validation, TakesXmlWithItsPrefixes) {
  const auto xml = [](int protocol) {
    return fmt::format(
        "<c:config xmlns:c=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
        "xmlns:a=\"urn:ietf:params:xml:ns:yang:ietf-access-control-list\">\n<a:acls><a:acl><a:name>A</a:name>"
        "<a:type>a:ipv4-acl-type</a:type><a:aces>\n<a:ace><a:name>1</a:name><a:matches><a:ipv4>"
        "<a:protocol>{}</a:protocol></a:ipv4></a:matches><a:actions><a:forwarding>a:accept</a:forwarding>"
        "</a:actions></a:ace></a:aces></a:acl></a:acls></c:config>",
        protocol);
  };
  EXPECT_EQ(mistakesOf(xml(6)), "");
  EXPECT_EQ(
      mistakesOf(xml(99)),
      fmt::format(
          "t:3:45: found \"99\" at {}/matches/ipv4/protocol, expected what its module allows: Unsatisfied range - value "
          "\"99\" is out of the allowed range\n",
          acePath));
}

TEST_F(Validation, NamesTheModuleThatIsNotThere) {
  const std::string document =
      R"({"acl": {"acl-sets": {"acl-set": [{"name": "A", "type": "ACL_IPV4", "config": {"name": "A", "type": "ACL_IPV4"}}]}}})";
  EXPECT_EQ(mistakesOf(document),
            fmt::format("t:1:2: found \"acl\" of module \"openconfig-acl\", expected this module in {} "
                        "(--yang-dir): Data model \"openconfig-acl\" not found in local searchdirs.\n",
                        dir_));
}

TEST_F(Validation, SaysWhatItCannotValidate) {
  const auto result = read({{"t", R"({"ACL_TABLE": {}, "ACL_RULE": {}})"}}, {}, SIZE_MAX, {dir_});
  ASSERT_TRUE(result.model);
  ASSERT_EQ(result.model->notices.warnings.size(), 1u);
  EXPECT_EQ(result.model->notices.warnings[0].code.kind().code, "not-validated");
  EXPECT_TRUE(read({{"t", "ip access-list A\n"}}, {}, SIZE_MAX, {dir_}).model->notices.warnings.empty())
      << "a text is no document";
}

TEST_F(Validation, AFolderThatIsNoneIsNamed) {
  EXPECT_EQ(whyNoModules(dir_ + "/none"), dir_ + "/none is no folder");
}

/// The modules and documents that others wrote, where they are at hand.
class RealValidation : public testing::Test {
 protected:
  void SetUp() override {
    if (!whyNoModules(yang_).empty()) GTEST_SKIP() << whyNoModules(yang_);
  }
  const fs::path models_ = fs::path(VELO_SOURCE_DIR) / "../shared/data/models";
  const std::string yang_ = models_ / "yang";
};

/// What is taken without the modules is taken with them, and so is all that is written of it.
TEST_F(RealValidation, FindsRealDocumentsInOrderAndWhatIsWrittenOfThem) {
  int validated = 0;
  for (const char* folder : {"rfc8519", "openconfig"}) {
    for (const auto& file : fs::directory_iterator(models_ / folder)) {
      std::ostringstream text;
      text << std::ifstream(file.path()).rdbuf();
      const auto usual = read({{"t", text.str()}});
      const auto result = read({{"t", text.str()}}, {}, SIZE_MAX, {yang_});
      ASSERT_EQ(result.model.has_value(), usual.model.has_value())
          << file.path() << " " << textsOf(result.mistakes).front();
      if (!result.model) continue;
      for (const Format format : {Format::ietf, Format::openConfig}) {
        const auto written = write(*result.model, format, true);
        ASSERT_TRUE(written.refused.empty()) << file.path() << written.refused[0];
        const auto again = read({{"t", written.document}}, {}, SIZE_MAX, {yang_});
        EXPECT_TRUE(again.model) << file.path() << textsOf(again.mistakes).front() << "\n"
                                 << written.document;
        ++validated;
      }
    }
  }
  EXPECT_GE(validated, 10 * 2);
}

}  // namespace
}  // namespace Models
