#include <agent/ConfigFiles.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace Agent {

namespace fs = std::filesystem;

namespace {

/// The text of a file; what was wrong goes to `wrong`.
std::optional<std::string> textOf(const std::string& path, std::vector<std::string>& wrong) {
  std::error_code error;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (fs::is_directory(path, error)) {
    wrong.push_back(fmt::format("{}: is a directory", path));
    return std::nullopt;
  }
  if (!file) {
    wrong.push_back(fmt::format("{}: {}", path, std::strerror(errno)));
    return std::nullopt;
  }
  if (fs::file_size(path, error) != 0 || error) text << file.rdbuf();
  if (file.bad()) {
    wrong.push_back(fmt::format("{}: could not be read to its end", path));
    return std::nullopt;
  }
  return text.str();
}

void take(Config::Result&& result, Config::Model& model, std::vector<std::string>& wrong) {
  for (const auto& mistake : result.mistakes) wrong.push_back(mistake.str());
  if (result.model) model = std::move(*result.model);
}

}  // namespace

std::vector<std::string> ConfigFiles::read(const std::vector<std::string>& commandLine, const std::string& dir) {
  std::vector<std::string> wrong;
  std::vector<Config::Source> sources;
  for (const std::string& path : commandLine) {
    if (auto text = textOf(path, wrong)) sources.push_back({path, std::move(*text)});
  }
  take(Config::read(sources), commandLine_, wrong);

  if (dir.empty()) return wrong;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(dir, error)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with('.') || name.ends_with('~') || entry.is_directory()) continue;
    if (auto text = textOf(entry.path().string(), wrong)) {
      take(Config::read({{entry.path().string(), std::move(*text)}}), inputs_[name], wrong);
    }
  }
  if (error) wrong.push_back(fmt::format("{}: {}", dir, error.message()));
  return wrong;
}

}  // namespace Agent
