#pragma once

#include <agent/config/Mistake.h>
#include <agent/config/Notices.h>
#include <agent/models/Tree.h>
#include <agent/warnings/Warning.h>

#include <string>
#include <utility>
#include <vector>

namespace Models {

/// What is wrong and what is odd about one document.
class Report {
 public:
  explicit Report(std::string file) : file_(std::move(file)) {}

  void mistake(At at, std::string found, std::string expected) {
    mistakes_.push_back({file_, at.line, at.column, std::move(found), std::move(expected)});
  }
  void warn(At at, Agent::WarningCode code, std::string text) {
    warnings_.push_back({code, {file_, at.line, at.column}, std::move(text)});
  }

  const std::string& file() const { return file_; }
  const std::vector<Config::Mistake>& mistakes() const { return mistakes_; }
  const Agent::Warnings& warnings() const { return warnings_; }

 private:
  std::string file_;
  std::vector<Config::Mistake> mistakes_;
  Agent::Warnings warnings_;
};

}  // namespace Models
