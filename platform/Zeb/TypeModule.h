#pragma once

#include <Kelp/Ptr.h>
#include <Zeb/Attributes.h>

#include <functional>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace Zeb {

/// A reflected type in the registry: its description and, if there is one, a function that constructs an
/// object from a list of arguments.
struct TypeEntry {
  const TypeData* data;
  std::function<Kelp::Ptr<Kelp::Node>(std::span<const std::any>)> construct;
};

/// Describes a type that reflection cannot construct.
template <class T>
TypeEntry typeEntry() {
  return {&typeDataOf<T>(), nullptr};
}

/// Describes a type together with its factory. construct() gives null when the number or a type of the
/// arguments is not what the factory takes.
template <class T, class... Args>
TypeEntry typeEntry(Kelp::Ptr<T> (*factory)(Args...)) {
  return {&typeDataOf<T>(), [factory](std::span<const std::any> given) -> Kelp::Ptr<Kelp::Node> {
            if (given.size() != sizeof...(Args)) return nullptr;
            return [&]<size_t... At>(std::index_sequence<At...>)->Kelp::Ptr<Kelp::Node> {
              [[maybe_unused]] const auto typed =
                  std::tuple{std::any_cast<std::remove_cvref_t<Args>>(&given[At])...};
              if (!(std::get<At>(typed) && ...)) return nullptr;
              return factory(*std::get<At>(typed)...);
            }
            (std::index_sequence_for<Args...>());
          }};
}

/// The reflected types of one unit. They are in the registry as long as this object lives. A unit has one as
/// a global object, so that its types leave the registry when its library is closed.
class TypeModule {
 public:
  TypeModule(std::string_view unit, std::vector<TypeEntry> entries);
  TypeModule(const TypeModule&) = delete;
  TypeModule& operator=(const TypeModule&) = delete;
  ~TypeModule();

  std::string_view unit() const { return unit_; }
  const std::vector<TypeEntry>& entries() const { return entries_; }

 private:
  std::string_view unit_;
  std::vector<TypeEntry> entries_;
};

/// The modules of the process, in the order of registration.
const std::vector<const TypeModule*>& typeModules();

/// The registered type of a full name, of the latest module that has it; null when there is none.
const TypeEntry* typeByName(std::string_view name);

/// Constructs an object of a registered type; null when the type is unknown, not constructible or takes other
/// arguments.
Kelp::Ptr<Kelp::Node> constructByName(std::string_view name, std::span<const std::any> arguments);

}  // namespace Zeb
