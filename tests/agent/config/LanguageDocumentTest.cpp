#include "LanguageTables.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

// The names that the documents of the language have are those of the reader. What has to be in them is
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

/// In a manual page - is a hyphen, and \- what is typed.
std::string manual(const NameTable& table) {
  std::string text = fmt::format(".SS {}\n.nf\n", table.title);
  for (const auto& [key, names] : table.rows) {
    std::string line;
    for (size_t i = 0; i < key.size(); ++i) line += fmt::format("{:<8}", table.shown(i, key[i]));
    for (const auto name : names) line += fmt::format(" {}", name);
    for (size_t at = 0; (at = line.find('-', at)) != std::string::npos; at += 2) line.insert(at, 1, '\\');
    text += line + "\n";
  }
  return text + ".fi\n";
}

void expectTables(const char* file, std::string (*written)(const NameTable&)) {
  const std::string document = readWhole(std::string(VELO_SOURCE_DIR) + file);
  for (const auto& table : nameTables()) {
    ASSERT_FALSE(table.rows.empty()) << table.title;
    const std::string wanted = written(table);
    EXPECT_NE(document.find(wanted), std::string::npos) << file << " is to have this table:\n" << wanted;
    if (const char* path = std::getenv("VELO_LANGUAGE_TABLES"))
      std::ofstream(path, std::ios::app) << wanted << "\n";
  }
}

TEST(LanguageDocument, HasTheNamesOfTheReader) { expectTables("/docs/configuration.md", markdown); }
TEST(LanguageDocument, HasTheNamesOfTheReaderInTheManualPage) {
  expectTables("/docs/man/velo-acl.5", manual);
}

}  // namespace
}  // namespace Config
