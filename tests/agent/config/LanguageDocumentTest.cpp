#include "LanguageTables.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

// The names that the document of the language has are those of the reader. What has to be in them is
// written to the file that VELO_LANGUAGE_TABLES names, when there is such a variable.

namespace Config {
namespace {

std::string readWhole(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string markdown(const NameTable& table) {
  std::string text = fmt::format("### {}\n\n|", table.title), line = "|";
  for (const auto& column : table.columns) text += fmt::format(" {} |", column), line += "---|";
  text += " names |\n" + line + "---|\n";
  for (const auto& [key, names] : table.rows) {
    text += "|";
    for (size_t i = 0; i < key.size(); ++i) text += fmt::format(" {} |", table.shown(i, key[i]));
    for (const auto name : names) text += fmt::format(" `{}`", name);
    text += " |\n";
  }
  return text;
}

TEST(LanguageDocument, HasTheNamesOfTheReader) {
  const std::string document = readWhole(VELO_SOURCE_DIR "/docs/configuration.md");
  for (const auto& table : nameTables()) {
    ASSERT_FALSE(table.rows.empty()) << table.title;
    const std::string wanted = markdown(table);
    EXPECT_NE(document.find(wanted), std::string::npos) << "docs/configuration.md is to have this table:\n"
                                                        << wanted;
    if (const char* path = std::getenv("VELO_LANGUAGE_TABLES"))
      std::ofstream(path, std::ios::app) << wanted << "\n";
  }
}

}  // namespace
}  // namespace Config
