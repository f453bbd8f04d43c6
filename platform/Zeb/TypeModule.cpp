#include <Zeb/TypeModule.h>

#include <algorithm>

namespace Zeb {

namespace {

std::vector<const TypeModule*>& modules() {
  static std::vector<const TypeModule*>& all = *new std::vector<const TypeModule*>;
  return all;
}

}  // namespace

TypeModule::TypeModule(std::string_view unit, std::vector<TypeEntry> entries)
    : unit_(unit), entries_(std::move(entries)) {
  modules().push_back(this);
}

TypeModule::~TypeModule() { std::erase(modules(), this); }

const std::vector<const TypeModule*>& typeModules() { return modules(); }

const TypeEntry* typeByName(std::string_view name) {
  for (auto module = modules().rbegin(); module != modules().rend(); ++module) {
    for (const TypeEntry& entry : (*module)->entries()) {
      if (entry.data->name() == name) return &entry;
    }
  }
  return nullptr;
}

Kelp::Ptr<Kelp::Node> constructByName(std::string_view name, std::span<const std::any> arguments) {
  const TypeEntry* entry = typeByName(name);
  return entry && entry->construct ? entry->construct(arguments) : nullptr;
}

}  // namespace Zeb
