#pragma once

#include <Kelp/Duration.h>

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

/// The dual trace: every record goes to the ring (Blip::ring()) and, when one is set, to a stream.
namespace Plog {

/// One trace record. The texts are the writer's and live for the call only.
struct Record {
  Kelp::Duration time;  ///< seconds since the epoch
  std::string_view facility;
  int level = 0;
  std::string_view function;
  std::string_view file;  ///< a source path without its extension, empty when the writer has none
  int line = 0;
  std::string_view text;
};

using Stream = std::function<void(const Record&)>;

/// Sets the stream that records go to besides the ring, or none with an empty function; returns the one
/// before. What a stream itself traces goes to the ring only. A stream may replace itself.
Stream streamIs(Stream stream);
/// A stream that writes streamLine() and a line feed to an open file, which it does not own, and flushes.
Stream fileStream(std::FILE* file);

void write(const Record& record);

/// "TIME FACILITY/LEVEL FUNCTION: TEXT", the time in seconds with 6 decimals.
std::string streamLine(const Record& record);
/// The stream's line and, when the record has a file, " (FILE:LINE)".
std::string ringLine(const Record& record);

}  // namespace Plog
