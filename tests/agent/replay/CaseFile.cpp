#include "CaseFile.h"

#include <fmt/format.h>

#include <sstream>
#include <stdexcept>

namespace TestSupport {

std::string trimmed(const std::string& text) {
  std::istringstream words(text);
  std::string all, word;
  while (words >> word) all += (all.empty() ? "" : " ") + word;
  return all;
}

CaseFile readCase(const std::string& path) {
  CaseFile result;
  std::istringstream file(readFile(path));
  std::string line, section, name;
  std::string* text = nullptr;
  for (int number = 1; std::getline(file, line); ++number) {
    const auto wrong = [&](const std::string& what) {
      throw std::runtime_error(fmt::format("{}:{}: {}", path, number, what));
    };
    if (line.starts_with('[')) {
      const std::string title = line.substr(1, line.find(']') - 1);
      section = title.substr(0, title.find(' '));
      name = title.size() > section.size() ? title.substr(section.size() + 1) : "config";
      text = nullptr;
      if (section == "config")
        text = &result.configs.emplace_back(name, "").second;
      else if (section == "dir")
        text = &result.dir.emplace_back(name, "").second;
      else if (section != "options" && section != "frames" && section != "report")
        wrong("no such section");
      continue;
    }
    if (text) {
      *text += line + "\n";
      continue;
    }
    const std::string words = trimmed(line);
    if (words.empty()) continue;
    if (words.starts_with('!')) {
      if (section.empty()) result.about += trimmed(words.substr(1)) + " ";
      continue;
    }
    try {
      if (section == "options") {
        const size_t blank = words.find(' ');
        result.options.push_back(words.substr(0, blank));
        if (blank != std::string::npos) result.options.push_back(words.substr(blank + 1));
      } else if (section == "report") {
        result.report.push_back(words);
      } else if (section != "frames") {
        wrong("stands in no section");
      } else if (line.starts_with(' ')) {
        if (result.frames.empty()) wrong("a verdict without a frame");
        std::string& verdict = result.frames.back().verdict;
        verdict += (verdict.empty() ? "" : " ") + words;
      } else {
        result.frames.push_back({readFrame(words), "", number});
      }
    } catch (const std::exception& error) {
      wrong(error.what());
    }
  }
  return result;
}

}  // namespace TestSupport
