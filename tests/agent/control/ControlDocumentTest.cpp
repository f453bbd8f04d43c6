#include <agent/control/Operations.h>
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"

// What docs/control.md says of requests is what the tables of the program say.

namespace {

using Agent::Operations;
using Agent::RequestMember;
using testing::HasSubstr;

const std::string controlDocument = TestSupport::readFile(VELO_SOURCE_DIR "/docs/control.md");

std::string rowOf(const std::string& operation, const RequestMember& member) {
  const auto otherwise = member.required()            ? "refused"
                         : member.otherwise == "null" ? ""
                                                      : fmt::format("`{}`", member.otherwise);
  return fmt::format("| {} | `{}` | {} | {} | {} |\n", operation, member.name, kindText(member.kind),
                     otherwise, member.meaning);
}

/// What is printed otherwise is what the document is to have.
void expectTable(const std::string& table) {
  if (controlDocument.find(table + "\n") == std::string::npos)
    ADD_FAILURE() << "docs/control.md is to have this table:\n" << table;
}

TEST(ControlDocument, HasTheTableOfOperations) {
  std::string table = "| `do` | document |\n|---|---|\n";
  for (const auto& operation : Operations::all())
    table +=
        fmt::format("| `{}`{} | {} |\n", operation.name, operation.changes ? " *" : "", operation.answer);
  expectTable(table);
}

TEST(ControlDocument, HasTheTableOfMembers) {
  std::string table = "| `do` | member | is | when it is missing | meaning |\n|---|---|---|---|---|\n";
  const auto common = Operations::common();
  for (const auto& member : common) table += rowOf("any", member);
  for (const auto& operation : Operations::all()) {
    for (const auto& member : std::span(operation.members).subspan(common.size()))
      table += rowOf(fmt::format("`{}`", operation.name), member);
  }
  expectTable(table);
}

TEST(ControlDocument, HasARowForEverythingThatCanBeShown) {
  for (const Agent::Show& show : Agent::shows()) {
    const std::string argument = show.argument.empty() ? "" : fmt::format(" {}", show.argument);
    EXPECT_THAT(controlDocument, HasSubstr(fmt::format("| `{}`{} | ", show.name, argument)));
  }
}

TEST(ControlDocument, EveryMemberThatMayBeMissingSaysWhatItIsThen) {
  for (const auto& operation : Operations::all()) {
    for (const auto& member : operation.members) {
      if (member.required()) continue;
      const std::string line = fmt::format("{{\"{}\":{}}}", member.name, member.otherwise);
      std::string wrong;
      auto request = Agent::Request::read(line, &wrong);
      ASSERT_TRUE(request) << line << ": " << wrong;
      if (member.otherwise == "null") continue;
      EXPECT_EQ(request->wrongIn(member), std::nullopt) << "as if it was sent so: " << line;
    }
  }
}

}  // namespace
