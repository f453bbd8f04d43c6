#include <agent/change/ConfigFiles.h>
#include <agent/core/Output.h>
#include <agent/models/Reader.h>
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace Agent {

namespace fs = std::filesystem;

std::vector<fs::path> configFilesIn(const std::string& dir, std::vector<std::string>& wrong) {
  // std::filesystem ends the process when memory runs out in the middle of a directory.
  struct Close {
    void operator()(DIR* opened) const { closedir(opened); }
  };
  const std::unique_ptr<DIR, Close> opened(opendir(dir.c_str()));
  std::vector<fs::path> files;
  const auto next = [&opened] {
    if (opened) errno = 0;
    return opened ? readdir(opened.get()) : nullptr;
  };
  while (const dirent* entry = next()) {
    const std::string name = entry->d_name;
    struct stat file {};
    if (name.starts_with('.') || name.ends_with('~')) continue;
    if (fstatat(dirfd(opened.get()), name.c_str(), &file, 0) == 0 && S_ISDIR(file.st_mode)) continue;
    files.push_back(fs::path(dir) / name);
  }
  // The error of opendir, or of the last readdir.
  if (errno != 0) wrong.push_back(failureOf(dir));
  std::sort(files.begin(), files.end());
  return files;
}

namespace {

void take(Config::Result&& result, Config::Model& model, std::vector<std::string>& wrong) {
  for (auto& mistake : textsOf(result.mistakes)) wrong.push_back(std::move(mistake));
  if (result.model) model = std::move(*result.model);
}

}  // namespace

Config::Model ConfigFiles::start() const {
  Config::Model model;
  model.notices.ofAllRules = ofAllRules_;
  return model;
}

std::vector<std::string> ConfigFiles::read(const std::vector<std::string>& commandLine,
                                           const std::string& dir, TextLimits limits) {
  TextReader reader(limits);
  auto wrong = readCommandLine(commandLine, TextReader::Named::byUser, reader);
  for (std::string& line : readDirectory(dir, reader)) wrong.push_back(std::move(line));
  return wrong;
}

std::vector<std::string> ConfigFiles::readCommandLine(const std::vector<std::string>& paths,
                                                      TextReader::Named named, TextReader& reader,
                                                      size_t most) {
  std::vector<std::string> wrong;
  std::vector<Config::Source> sources;
  for (const std::string& path : paths) {
    auto file = reader.read(path, named, wrong);
    if (file) sources.push_back({path, std::move(file->text)});
  }
  take(Models::read(sources, start(), most, reader.limits().yangDirs), sources_.commandLine, wrong);
  return wrong;
}

std::vector<std::string> ConfigFiles::readDirectory(const std::string& dir, TextReader& reader, size_t most) {
  std::vector<std::string> wrong;
  const int64_t time = fileTime();
  for (const fs::path& path : dir.empty() ? std::vector<fs::path>() : configFilesIn(dir, wrong)) {
    const std::string name = path.filename().string();
    if (const auto why = whyNoSource(name)) {
      wrong.push_back(fmt::format("{}: {}", path.string(), *why));
      continue;
    }
    auto file = reader.read(path.string(), TextReader::Named::byPlace, wrong);
    if (!file) continue;
    contents_[name] = {file->identity, file->hash, isSettled(file->identity, time)};
    take(Models::read({{path.string(), std::move(file->text)}}, start(), most, reader.limits().yangDirs),
         sources_.inputs[name], wrong);
  }
  return wrong;
}

}  // namespace Agent
