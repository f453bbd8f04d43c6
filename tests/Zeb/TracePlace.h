#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "TraceCapture.h"

/// Whether a trace record names the line that wrote it: a file of the sources, a text that stands on that
/// line, and a text that the record contains.
struct TracePlace {
  const char *file, *written, *read;
};

inline std::vector<std::string> sourceLines(const std::string& file) {
  std::ifstream opened(VELO_SOURCE_DIR "/" + file);
  EXPECT_TRUE(opened) << file;
  std::vector<std::string> lines{""};  // the first one is at 1
  for (std::string line; std::getline(opened, line);) lines.push_back(line);
  return lines;
}

/// Looks at the first record that has the text.
inline void expectPlace(const TraceCapture& traces, const TracePlace& place) {
  for (const TraceLine& record : traces.lines()) {
    if (record.text.find(place.read) == std::string::npos) continue;
    const auto source = sourceLines(place.file);
    const auto line = static_cast<size_t>(record.line);
    ASSERT_LT(line, source.size()) << place.read;
    // A call may be wrapped: the text stands on its line or on the next.
    const std::string near = source[line] + (line + 1 < source.size() ? source[line + 1] : "");
    EXPECT_NE(near.find(place.written), std::string::npos)
        << place.read << ": " << place.file << ":" << line << " is " << source[line];
    return;
  }
  ADD_FAILURE() << "no record has " << place.read;
}
