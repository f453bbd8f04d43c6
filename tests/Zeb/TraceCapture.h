#pragma once

#include <Plog/Plog.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A trace record that owns its texts.
struct TraceLine {
  std::string facility;
  int level;
  std::string function;
  std::string file;
  int line;
  std::string text;
  double time;
};

/// Collects the trace records of its lifetime in place of the stream, and puts the stream back.
class TraceCapture {
 public:
  TraceCapture()
      : before_(Plog::streamIs([this](const Plog::Record& r) {
          lines_.push_back({std::string(r.facility), r.level, std::string(r.function), std::string(r.file),
                            r.line, std::string(r.text), r.time.seconds()});
        })) {}
  ~TraceCapture() { Plog::streamIs(std::move(before_)); }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  const std::vector<TraceLine>& lines() const { return lines_; }
  /// The texts alone, for tables.
  std::vector<std::string> texts() const {
    std::vector<std::string> all;
    for (const TraceLine& line : lines_) all.push_back(line.text);
    return all;
  }
  void clear() { lines_.clear(); }

 private:
  std::vector<TraceLine> lines_;
  Plog::Stream before_;
};
