#include "Support.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

namespace Config {
namespace {

namespace fs = std::filesystem;

/// Texts that others wrote, where they are at hand; some of their lines are not statements here.
fs::path realTexts() {
  if (const char* place = std::getenv("VELO_CONFIG_TEXTS")) return place;
  return fs::path(VELO_SOURCE_DIR) / "../shared/data/configs";
}

bool saysNothing(const std::string& line) {
  const auto at = line.find_first_not_of(" \t\r");
  if (at == std::string::npos || line[at] == '!' || line[at] == '#') return true;
  const auto word = line.substr(at, line.find_last_not_of(" \t\r") + 1 - at);
  return word == "exit" || word == "end";
}

/// Every line of a real text is taken or reported. What is taken shows: cut down to the lines that are not
/// reported, the text grows a line at a time, and the model with it.
TEST(RealText, EveryLineIsTakenOrReportedWithItsPlace) {
  std::error_code error;
  if (!fs::is_directory(realTexts(), error)) GTEST_SKIP() << "no texts at " << realTexts();
  int files = 0;
  for (const auto& entry : fs::directory_iterator(realTexts())) {
    if (entry.path().extension() != ".txt") continue;
    ++files;
    const auto name = entry.path().filename().string();
    std::vector<std::string> lines;
    std::ifstream in(entry.path());
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::string text;
    for (const auto& line : lines) text += line + "\n";

    std::set<int> reported;
    for (const auto& mistake : read({{name, text}}).mistakes) {
      EXPECT_EQ(mistake.file, name);
      ASSERT_LE(mistake.line, static_cast<int>(lines.size()));
      EXPECT_FALSE(saysNothing(lines[mistake.line - 1])) << mistake.str();
      EXPECT_LE(mistake.column, static_cast<int>(lines[mistake.line - 1].size()) + 1) << mistake.str();
      EXPECT_TRUE(reported.insert(mistake.line).second) << mistake.str();
    }
    std::vector<std::string> taken;
    for (size_t i = 0; i < lines.size(); ++i) {
      if (!reported.count(static_cast<int>(i) + 1) && !saysNothing(lines[i])) taken.push_back(lines[i]);
    }
    std::string soFar;
    std::optional<Model> before = Model();
    for (const auto& line : taken) {
      soFar += line + "\n";
      const auto result = readText(soFar);
      ASSERT_TRUE(result.model) << name << ": " << result.mistakes.at(0).str();
      const bool onlyOpensOrTakesBack = line.starts_with("interface ") || line.starts_with("no ");
      EXPECT_TRUE(onlyOpensOrTakesBack || result.model != before) << name << ": nothing came of: " << line;
      before = result.model;
    }
  }
  EXPECT_GT(files, 0) << realTexts() << " has no texts";
}

}  // namespace
}  // namespace Config
