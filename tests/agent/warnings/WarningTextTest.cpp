#include <agent/warnings/WarningText.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "../support/CaptureBytes.h"

#include <set>

namespace {

using Agent::Warning;

const struct {
  const char* why;
  Warning warning;
  const char* text;
  const char* json;
} toldWarnings[] = {
    {"an opening with its place",
     {"list-undefined", {"a.acl", 3, 7}, "A is not there"},
     "a.acl:3:7: opening: A is not there",
     R"({"code": "list-undefined", "consequence": "opening", "file": "a.acl", "line": 3, "column": 7,
         "text": "A is not there"})"},
    {"a surprise, which people call a warning",
     {"netmask", {"-", 1, 1}, "a netmask"},
     "-:1:1: warning: a netmask",
     R"({"code": "netmask", "consequence": "surprise", "file": "-", "line": 1, "column": 1, "text": "a netmask"})"},
    {"a note of no place",
     {"list-unbound", {}, "A is bound nowhere"},
     "note: A is bound nowhere",
     R"({"code": "list-unbound", "consequence": "note", "file": null, "line": null, "column": null,
         "text": "A is bound nowhere"})"},
    {"an example behind it",
     {"rule-never-matches", {"a", 2, 2}, "rule 20 never matches", "tcp 10.0.0.1:1 > 10.0.0.2:2 syn", {5, 10}},
     "a:2:2: warning: rule 20 never matches (for example tcp 10.0.0.1:1 > 10.0.0.2:2 syn)",
     R"({"code": "rule-never-matches", "consequence": "surprise", "file": "a", "line": 2, "column": 2,
         "text": "rule 20 never matches", "example": "tcp 10.0.0.1:1 > 10.0.0.2:2 syn", "by": [5, 10]})"},
};

TEST(WarningText, PeopleAndProgramsAreToldTheSame) {
  Agent::Warnings all;
  std::string text;
  for (const auto& row : toldWarnings) {
    EXPECT_EQ(warningText(row.warning), row.text) << row.why;
    EXPECT_EQ(warningJson(row.warning), nlohmann::ordered_json::parse(row.json)) << row.why;
    all.push_back(row.warning);
    text += std::string(row.text) + "\n";
  }
  EXPECT_EQ(Agent::warningsText(warningsJson(all)), text) << "a document becomes the same lines";
  testing::internal::CaptureStderr();
  tellWarnings(all);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), text);
}

TEST(WarningText, EveryKindHasACodeOfItsOwnAndAMeaning) {
  std::set<std::string_view> codes;
  for (const auto& kind : Agent::warningKinds) {
    EXPECT_TRUE(codes.insert(kind.code).second) << kind.code;
    EXPECT_EQ(kind.code.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), kind.code.npos)
        << kind.code;
    EXPECT_FALSE(kind.meaning.empty()) << kind.code;
  }
}

TEST(WarningText, TheKindsAreDocumented) {
  std::string table = "| code | consequence | what it is |\n|---|---|---|\n";
  for (const auto& kind : Agent::warningKinds)
    table += fmt::format("| `{}` | {} | {} |\n", kind.code, stringValue(kind.consequence), kind.meaning);
  if (TestSupport::readFile(VELO_SOURCE_DIR "/docs/warnings.md").find(table + "\n") == std::string::npos)
    ADD_FAILURE() << "docs/warnings.md is to have this table:\n" << table;
}

}  // namespace
