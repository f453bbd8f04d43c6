#pragma once

#include <agent/config/Writer.h>
#include <agent/models/Reader.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace Models {

/// What reading one document gave, as a text: the configuration, or the mistakes, a line each.
inline std::string readAs(std::string_view document) {
  const auto result = read({{"t", std::string(document)}});
  if (result.model) return Config::textOf(*result.model);
  std::string all;
  for (const auto& mistake : result.mistakes) all += mistake.str() + "\n";
  return all;
}

/// The warnings of a document without mistakes, a line each: "CODE TEXT".
inline std::string warningsOf(std::string_view document) {
  const auto result = read({{"t", std::string(document)}});
  EXPECT_TRUE(result.model) << readAs(document);
  std::string all;
  if (!result.model) return all;
  for (const auto& warning : result.model->notices.warnings)
    all += fmt::format("{}:{} {} {}\n", warning.place.line, warning.place.column, warning.code.kind().code,
                       warning.text);
  return all;
}

}  // namespace Models
