#include <agent/change/DirectoryScan.h>
#include <agent/core/Memory.h>
#include <agent/core/Reserve.h>
#include <agent/models/Reader.h>

#include <new>

namespace Agent {

void DirectoryScan::run() {
  const auto files = configFilesIn(dir, unreadable);
  if (!unreadable.empty()) return;
  TextReader reader(limits);
  for (const auto& path : files) {
    const std::string name = path.filename().string();
    there.insert(name);
    look(path.string(), name, reader);
  }
  std::erase_if(seen, [this](const auto& file) { return !there.contains(file.first); });
}

void DirectoryScan::look(const std::string& path, const std::string& name, TextReader& reader) {
  const auto at = seen.find(name);
  const FileContent* known = at == seen.end() ? nullptr : &at->second;
  if (known && !all && !due.contains(name) && known->settled && identityOf(path) == known->identity) {
    reader.add(known->identity.size);
    return;
  }
  File file;
  if (const auto why = whyNoSource(name)) {
    file.wrong = {fmt::format("{}: {}", path, *why)};
    found[name] = std::move(file);
    return;
  }
  Refusable memory;
  try {
    read(path, reader, known, file);
    Refusable::check();
  } catch (const std::bad_alloc&) {
    file.model.reset();
    file.wrong = {fmt::format("{}: {}", path, outOfMemory)};
    file.shortOfMemory = true;
  }
  found[name] = std::move(file);
}

void DirectoryScan::read(const std::string& path, TextReader& reader, const FileContent* known,
                         File& file) const {
  auto text = reader.readOnly(path, TextReader::Named::byPlace, file.wrong);
  if (!text) return;
  file.content = {text->identity, text->hash, isSettled(text->identity, time)};
  if (known && known->hash == text->hash && known->identity.size == text->identity.size) return;
  if (auto why = reader.memory().whyNot(path, text->text)) {
    file.wrong = {std::move(*why)};
    file.shortOfMemory = true;
    return;
  }
  Config::Result result = Models::read({{path, std::move(text->text)}}, {}, mostMistakes, limits.yangDirs);
  file.wrong = textsOf(result.mistakes);
  file.model = std::move(result.model);
}

}  // namespace Agent
