#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace TestSupport {

/// What stands in a document between the line of a command and the next empty line or command, without the
/// blanks in front.
inline std::string sessionBehind(const std::string& document, const std::string& command) {
  const size_t start = document.find("    " + command + "\n");
  EXPECT_NE(start, std::string::npos) << command;
  if (start == std::string::npos) return {};
  std::istringstream lines(document.substr(start));
  std::string all, line;
  std::getline(lines, line);
  while (std::getline(lines, line) && line.starts_with("    ") && !line.starts_with("    $ "))
    all += line.substr(4) + "\n";
  return all;
}

/// A text in which a folder is not named.
inline std::string without(std::string text, const std::string& folder) {
  for (size_t at = 0; (at = text.find(folder)) != std::string::npos;) text.erase(at, folder.size());
  return text;
}

}  // namespace TestSupport
