#pragma once

namespace Agent {

/// The control sequences by which text stands out on a terminal. Without colour they are empty.
struct Style {
  explicit Style(bool colour) {
    if (!colour) return;
    bold = "\x1b[1m";
    dim = "\x1b[2m";
    red = "\x1b[31m";
    green = "\x1b[32m";
    yellow = "\x1b[33m";
    off = "\x1b[0m";
  }
  const char* bold = "";
  const char* dim = "";
  const char* red = "";
  const char* green = "";
  const char* yellow = "";
  const char* off = "";
};

}  // namespace Agent
