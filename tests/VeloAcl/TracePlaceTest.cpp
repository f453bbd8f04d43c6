#include <fstream>

#include "World.h"

// Where the records of the packet path say that they come from.

namespace {

using namespace TestSupport;

/// The lines of a source file of the plugin, the first one at 1.
Lines sourceLines(const char* file) {
  std::ifstream in(fmt::format("{}/VeloAcl/VeloPlugin/{}", VELO_SOURCE_DIR, file));
  EXPECT_TRUE(in) << file;
  Lines lines{""};
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class TracePlace : public World {
 protected:
  /// The record whose text contains this, with every record held against the unit's name.
  int lineOf(const TraceCapture& traces, std::string_view text) {
    for (const TraceLine& line : traces.lines()) {
      EXPECT_EQ(line.file, "VeloAcl/VeloPlugin/AclVeloPlugin") << line.text;
      if (line.text.find(text) != std::string::npos) return line.line;
    }
    ADD_FAILURE() << "no record has " << text;
    return 0;
  }
};

TEST_F(TracePlace, ARecordNamesTheLineThatWroteIt) {
  tracesOn();
  rule(AclType::ip, 5, Action::deny, "W");
  bind(AclType::ip, in);
  TraceCapture traces;
  EXPECT_FALSE(passes(tcp4()));
  EXPECT_TRUE(passes(arp()));
  EXPECT_TRUE(passes(cut(tcp4(), 13)));
  leaving(tcp4(), "eth9");
  ctx->mirroringSessionIs("W");
  EXPECT_TRUE(plugin->outputStep()->process(outCtx));

  struct Row {
    const char *file, *written, *read;
  };
  const Row rows[] = {
      {"DataplaneAclHelper.cpp", "\"No {} acls of type", "No in acls of type mac"},
      {"DataplaneAclHelper.cpp", "\"Matched acl {}", "Matched acl L"},
      {"DataplaneAclHelper.cpp", "\"mirroring packet to {}", "mirroring packet to W"},
      {"DataplaneAclHelper.cpp", "\"matched acl has action {}", "matched acl has action deny"},
      {"DataplaneAclHelper.cpp", "\"No ip header", "No ip header"},
      {"DataplaneAclHelper.cpp", "\"No ethernet header", "No ethernet header"},
      {"DataplaneAclSteps.cpp", "\"Skipping acl egress filtering", "Skipping acl egress filtering"},
  };
  for (const auto& [file, written, read] : rows) {
    const Lines source = sourceLines(file);
    const auto line = static_cast<size_t>(lineOf(traces, read));
    ASSERT_LT(line, source.size()) << read;
    // A call may be wrapped: the text stands on its line or on the next.
    const std::string near = source[line] + (line + 1 < source.size() ? source[line + 1] : "");
    EXPECT_NE(near.find(written), std::string::npos) << file << ":" << line << " is " << source[line];
  }
}

}  // namespace
