#pragma once

#include <any>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Zeb {

class TypeData;

/// An object whose attributes can be looked up by name.
class Reflected {
 public:
  virtual const TypeData& typeData() const = 0;

 protected:
  ~Reflected() = default;
};

/// One attribute of a type. It is described once, in the row that declares it, and identified by its address.
class Attribute {
 public:
  enum class Kind { value, collection };

  constexpr Attribute(std::string_view name, Kind kind) : name_(name), kind_(kind) {}

  constexpr std::string_view name() const { return name_; }
  constexpr Kind kind() const { return kind_; }
  /// A copy of the value; for a collection, a const pointer to it.
  virtual std::any get(const Reflected& object) const = 0;
  /// Writes a value as the attribute's setter does; false when the attribute has no plain setter or the value
  /// is of another type.
  virtual bool set(Reflected& object, const std::any& value) const = 0;
  /// The value as text; for a collection, the number of its elements.
  virtual std::string text(const Reflected& object) const = 0;

 protected:
  ~Attribute() = default;

 private:
  std::string_view name_;
  Kind kind_;
};

/// An operation that reflection knows by name.
struct Operation {
  std::string_view name;
  std::string_view parameter;
};

/// The description of a type: its full name, its base and its own attributes in the order of declaration.
class TypeData {
 public:
  TypeData(std::string_view name, const TypeData* base, std::span<const Attribute* const> attributes,
           std::span<const Operation> operations)
      : name_(name), base_(base), attributes_(attributes), operations_(operations) {}

  std::string_view name() const { return name_; }
  const TypeData* base() const { return base_; }
  std::span<const Attribute* const> attributes() const { return attributes_; }
  std::span<const Operation> operations() const { return operations_; }
  /// An attribute of the type or of a base, null when there is none of that name.
  const Attribute* attribute(std::string_view name) const;

 private:
  std::string_view name_;
  const TypeData* base_;
  std::span<const Attribute* const> attributes_;
  std::span<const Operation> operations_;
};

/// The value of an attribute by name; nothing when there is no such attribute or it is of another type.
template <class T>
std::optional<T> attributeValue(const Reflected& object, std::string_view name) {
  const Attribute* attribute = object.typeData().attribute(name);
  if (!attribute) return std::nullopt;
  const std::any value = attribute->get(object);
  if (const T* typed = std::any_cast<T>(&value)) return *typed;
  return std::nullopt;
}

/// Writes an attribute by name; false when that cannot be done (see Attribute::set).
template <class T>
bool attributeValueIs(Reflected& object, std::string_view name, const T& value) {
  const Attribute* attribute = object.typeData().attribute(name);
  return attribute && attribute->set(object, std::any(value));
}

}  // namespace Zeb
