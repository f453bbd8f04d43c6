#include "Support.h"

#include <agent/models/Writer.h>
#include <nlohmann/json.hpp>

#include "../config/RandomText.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace Models {
namespace {

namespace fs = std::filesystem;

/// The modules, where they are at hand.
fs::path modules() { return fs::path(VELO_SOURCE_DIR) / "../shared/data/models/yang"; }

bool hasYanglint() { return std::system("command -v yanglint >/dev/null 2>&1") == 0; }

/// Interfaces need a type, and the modules have none.
constexpr const char* typeModule =
    "module velo-test-type { namespace \"urn:velo-test-type\"; prefix t; import ietf-interfaces { prefix if; "
    "} identity any { base if:interface-type; } }\n";

/// Many lists that a model can say, bound to an interface; each rule is random.
std::string sayableText(Format format, TestSupport::Dice& dice) {
  std::string text;
  const std::pair<const char*, const char*> ofEach[] = {
      {"ip", "{ip rule}"}, {"ipv6", "{ipv6 rule}"}, {"mac", "{mac rule}"}};
  for (const auto& [kind, form] : ofEach) {
    const std::string head = fmt::format("{0} access-list {0}-list\n", kind);
    text += head;
    for (int i = 1; i <= 150; ++i) {
      const auto rule = Config::randomForm(form, dice);
      const auto model =
          Config::read({{"t", head + fmt::format("{} {}\n", i * 10, rule.substr(rule.find_first_of("pd")))}})
              .model;
      if (model && write(*model, format, false).refused.empty())
        text += fmt::format("{} {}\n", i * 10, rule.substr(rule.find_first_of("pd")));
    }
    text += fmt::format("interface e\n {0} access-group {0}-list in\n{0} access-list {0}-empty\n", kind);
  }
  return text;
}

/// What yanglint says of a document, with the modules for it; empty when it is valid.
std::string whyInvalid(const nlohmann::ordered_json& document, const std::string& arguments) {
  const fs::path dir = fs::path(testing::TempDir()) / fmt::format("velo-yang-{}", getpid());
  fs::create_directories(dir);
  std::ofstream(dir / "velo-test-type.yang") << typeModule;
  std::ofstream(dir / "document.json") << document.dump(1);
  const auto out = (dir / "out").string();
  const auto command =
      fmt::format("yanglint -p {0} {1} {2}/velo-test-type.yang -t config {2}/document.json >{3} 2>&1",
                  modules().string(), arguments, dir.string(), out);
  const bool valid = std::system(command.c_str()) == 0;
  std::ostringstream said;
  said << std::ifstream(out).rdbuf();
  fs::remove_all(dir);
  return valid ? "" : said.str() + "invalid";
}

TEST(Yang, FindsNothingWrongWithWhatIsWritten) {
  if (!hasYanglint()) GTEST_SKIP() << "yanglint is not installed";
  if (!fs::is_directory(modules())) GTEST_SKIP() << "no modules at " << modules();
  TestSupport::Dice dice(7);
  const auto documentOf = [&](Format format) {
    const auto model = Config::read({{"t", sayableText(format, dice)}}).model;
    EXPECT_TRUE(model);
    const auto written = write(model.value_or(Config::Model()), format, false);
    EXPECT_TRUE(written.refused.empty()) << written.refused[0];
    return nlohmann::ordered_json::parse(written.document);
  };
  const std::string ietf = fmt::format(
      "-F ietf-access-control-list:'*' {}/ietf-access-control-list@2019-03-04.yang", modules().string());
  auto document = documentOf(Format::ietf);
  document["ietf-interfaces:interfaces"]["interface"] = {{{"name", "e"}, {"type", "velo-test-type:any"}}};
  EXPECT_EQ(whyInvalid(document, ietf), "");
  document["ietf-access-control-list:acls"]["acl"][0]["aces"]["ace"][0]["actions"].erase("forwarding");
  EXPECT_NE(whyInvalid(document, ietf), "") << "it finds something";

  const std::string openConfig = fmt::format(
      "{0}/openconfig-acl.yang {0}/openconfig-interfaces.yang {0}/openconfig-icmpv4-types.yang "
      "{0}/openconfig-icmpv6-types.yang "
      "{0}/openconfig-packet-match-types.yang",
      modules().string());
  document = documentOf(Format::openConfig);
  document["openconfig-interfaces:interfaces"]["interface"] = {
      {{"name", "e"}, {"config", {{"name", "e"}, {"type", "velo-test-type:any"}}}}};
  EXPECT_EQ(whyInvalid(document, openConfig), "");
}

}  // namespace
}  // namespace Models
