#include <agent/ConfigFiles.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace Agent {

namespace fs = std::filesystem;

std::optional<std::string> readText(const std::string& path, std::vector<std::string>& wrong) {
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

std::vector<fs::path> configFilesIn(const std::string& dir, std::vector<std::string>& wrong) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator entry(dir, error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    std::error_code unknown;
    if (name.starts_with('.') || name.ends_with('~') || entry->is_directory(unknown)) continue;
    files.push_back(entry->path());
  }
  if (error) wrong.push_back(fmt::format("{}: {}", dir, error.message()));
  std::sort(files.begin(), files.end());
  return files;
}

namespace {

void take(Config::Result&& result, Config::Model& model, std::vector<std::string>& wrong) {
  for (const auto& mistake : result.mistakes) wrong.push_back(mistake.str());
  if (result.model) model = std::move(*result.model);
}

}  // namespace

std::vector<std::string> ConfigFiles::read(const std::vector<std::string>& commandLine,
                                           const std::string& dir) {
  std::vector<std::string> wrong;
  std::vector<Config::Source> sources;
  for (const std::string& path : commandLine) {
    if (auto text = readText(path, wrong)) sources.push_back({path, std::move(*text)});
  }
  take(Config::read(sources), commandLine_, wrong);

  if (dir.empty()) return wrong;
  for (const fs::path& path : configFilesIn(dir, wrong)) {
    if (auto text = readText(path.string(), wrong)) {
      take(Config::read({{path.string(), std::move(*text)}}), inputs_[path.filename().string()], wrong);
    }
  }
  return wrong;
}

bool ConfigFiles::hasPortChannel(const std::string& name) const {
  if (commandLine_.portChannels.contains(name)) return true;
  return std::any_of(inputs_.begin(), inputs_.end(),
                     [&](const auto& input) { return input.second.portChannels.contains(name); });
}

}  // namespace Agent
