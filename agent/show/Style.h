#pragma once

namespace Agent {

/// How text stands out on a terminal; everything is empty where it is not to.
struct Style {
  explicit Style(bool colour) {
    if (!colour) return;
    bold = "\x1b[1m";
    dim = "\x1b[2m";
    red = "\x1b[31m";
    off = "\x1b[0m";
  }
  const char* bold = "";
  const char* dim = "";
  const char* red = "";
  const char* off = "";
};

}  // namespace Agent
