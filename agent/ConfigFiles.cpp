#include <agent/ConfigFiles.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

namespace fs = std::filesystem;

std::vector<std::string> textsOf(const std::vector<Config::Mistake>& mistakes) {
  std::vector<std::string> texts;
  for (const auto& mistake : mistakes) texts.push_back(mistake.str());
  return texts;
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
  for (auto& mistake : textsOf(result.mistakes)) wrong.push_back(std::move(mistake));
  if (result.model) model = std::move(*result.model);
}

bool isWithinMemory(const std::string& path, const std::string& text, std::vector<std::string>& wrong) {
  auto why = whyNoMemoryFor(path, text);
  if (why) wrong.push_back(std::move(*why));
  return !why;
}

}  // namespace

std::vector<std::string> ConfigFiles::read(const std::vector<std::string>& commandLine,
                                           const std::string& dir, TextLimits limits) {
  std::vector<std::string> wrong;
  TextReader reader(limits);
  std::vector<Config::Source> sources;
  for (const std::string& path : commandLine) {
    auto file = reader.read(path, TextReader::Named::byUser, wrong);
    if (file && isWithinMemory(path, file->text, wrong)) sources.push_back({path, std::move(file->text)});
  }
  take(Config::read(sources), commandLine_, wrong);
  sources = {};

  if (dir.empty()) return wrong;
  for (const fs::path& path : configFilesIn(dir, wrong)) {
    auto file = reader.read(path.string(), TextReader::Named::byPlace, wrong);
    if (!file || !isWithinMemory(path.string(), file->text, wrong)) continue;
    const std::string name = path.filename().string();
    contents_[name] = {file->identity, file->hash};
    take(Config::read({{path.string(), std::move(file->text)}}), inputs_[name], wrong);
  }
  return wrong;
}

bool ConfigFiles::hasPortChannel(const std::string& name) const {
  if (commandLine_.portChannels.contains(name)) return true;
  return std::any_of(inputs_.begin(), inputs_.end(),
                     [&](const auto& input) { return input.second.portChannels.contains(name); });
}

}  // namespace Agent
