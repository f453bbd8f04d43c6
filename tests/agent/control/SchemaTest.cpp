#include <agent/control/Operations.h>
#include <agent/show/Shows.h>
#include <gtest/gtest.h>

#include "../support/Run.h"
#include "../support/Schema.h"

#include <filesystem>
#include <sstream>

namespace {

using Json = nlohmann::ordered_json;
using TestSupport::runVelo;
using TestSupport::whyNotOf;

const std::string examples = std::string(VELO_SOURCE_DIR) + "/examples/";

TEST(Schema, SaysWhatIsWrongWithADocument) {
  const struct {
    const char* schema;
    const char* document;
    const char* wrong;
  } cases[] = {
      {"clear.json", R"({"cleared": 1.5})", ""},
      {"clear.json", R"({"version": "0.1.0", "cleared": 1.5})", ""},
      {"clear.json", R"({})", ": has no \"cleared\""},
      {"clear.json", R"({"cleared": "now"})", "/cleared: \"now\" is no \"number\""},
      {"clear.json", R"({"cleared": 1, "by": "x"})", "/by: is not in the schema"},
      {"clear.json", R"([])", ": [] is no \"object\""},
      {"show-drops.json", R"({"cleared": null, "drops": {"Drop": {"A": {"b": 1}}}})", ""},
      {"show-drops.json", R"({"cleared": null, "drops": {"Drop": {"A": {"b": "c"}}}})",
       "/drops/Drop/A/b: \"c\" is no \"integer\""},
      {"nothing.json", R"({})", "there is no docs/schema/nothing.json"},
  };
  for (const auto& one : cases)
    EXPECT_EQ(whyNotOf(one.schema, Json::parse(one.document)), one.wrong) << one.document;
}

TEST(Schema, EverythingThatCanBeAskedForHasOne) {
  std::vector<Json> requests;
  for (const Agent::Show& show : Agent::shows()) requests.push_back({{"do", "show"}, {"what", show.name}});
  for (const auto& operation : Agent::Operations::all()) requests.push_back({{"do", operation.name}});
  for (const Json& request : requests) {
    if (request == Json{{"do", "show"}}) continue;
    const std::string path =
        std::string(VELO_SOURCE_DIR) + "/docs/schema/" + TestSupport::kindOf(request) + ".json";
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
  }
}

/// A command that prints a document has a schema, whether another test looks at the document or not.
TEST(Schema, EveryCommandThatPrintsADocumentHasOne) {
  std::istringstream commands(runVelo({"complete", "--", ""}).out +
                              runVelo({"complete", "--", "fleet", ""}).out);
  int printing = 0;
  bool ofFleet = false;  // behind the last of the others
  for (std::string command, last; std::getline(commands, command); last = command) {
    ofFleet = ofFleet || command < last;
    std::vector<std::string> words = {command, "--help"};
    if (ofFleet) words.insert(words.begin(), "fleet");
    const std::string help = runVelo(words).out;
    if (help.find("--json") == std::string::npos || (command == "show" && !ofFleet)) continue;
    words.back() = "--json";
    const std::string path =
        fmt::format("{}/docs/schema/{}.json", VELO_SOURCE_DIR, TestSupport::kindOf(words));
    EXPECT_TRUE(std::filesystem::exists(path)) << command << ": " << path;
    ++printing;
  }
  EXPECT_TRUE(ofFleet);
  EXPECT_GE(printing, 15);
}

/// Whatever runVelo() is given back is checked.
TEST(Schema, DocumentsOfCommandsThatAskNoAgentHaveTheirForm) {
  const std::string demo = examples + "demo.acl", repaired = examples + "repaired.acl";
  const std::vector<std::string> commands[] = {
      {"find", "permit", "EDGE-IN", "--config", repaired, "where", "tcp any any eq telnet"},
      {"find", "match", "EDGE-IN:60", "--config", repaired, "--all"},
      {"check", examples + "shadowed.acl"},
      {"check", "--ports", "eth7", demo},
      {"compare", examples + "any.acl", demo},
      {"test", "--config", demo, examples + "demo.expect"},
      {"convert", "--to", "ietf", demo},
      {"convert", "--to", "openconfig", "--lossy", examples + "shadowed.acl"},
      {"log-messages"},
  };
  for (auto command : commands) {
    command.emplace_back("--json");
    EXPECT_NE(runVelo(command).out, "") << command[0];
  }
}

}  // namespace
