#pragma once

#include "FrameText.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

/// One end-to-end case: what the program is given, and what it is to say.
///
/// The file begins with lines of `!` that say what the case shows. Sections follow:
///
///   [config], [config NAME]   a text for --config, in the order of the file
///   [dir NAME]                a file in --config-dir
///   [options]                 further options of `velo replay`, one on each line, with its value behind a blank
///   [frames]                  each frame (FrameText.h), and indented below it its verdict:
///                               pass: HIT, HIT; copied to SESSION, SESSION
///                               drop DIRECTION "REASON": HIT, ...
///                             where a HIT is `INTERFACE DIRECTION TYPE LIST RULE ACTION`. The hit of an
///                             implicit drop is written as rule `implicit`.
///   [report]                  the lines that ReportLines makes of the JSON document. If the case uses a kind of
///                             line (its first word), it has to have all lines of that kind.
///
/// Frames are numbered from 1 in the order of the file; every port's capture has its frames in that order.
struct CaseFile {
  struct Frame {
    FrameText text;
    std::string verdict;
    int line = 0;
  };
  std::string about;
  std::vector<std::pair<std::string, std::string>> configs;  ///< name and text
  std::vector<std::pair<std::string, std::string>> dir;
  std::vector<std::string> options;
  std::vector<Frame> frames;
  std::vector<std::string> report;
};

/// Reads a case; throws std::runtime_error with the line that is wrong.
CaseFile readCase(const std::string& path);

/// With single blanks and none at the ends.
std::string trimmed(const std::string& text);

}  // namespace TestSupport
