#pragma once

#include <Kelp/Ptr.h>
#include <Zeb/Reflect.h>
#include <fmt/format.h>

#include <any>
#include <string>
#include <type_traits>
#include <utility>

namespace Zeb {

// The kinds of attributes: how one is read and written by its name, without knowing the type that has it. A
// row in Attributes.h makes one of them.

template <class T>
concept Formattable = fmt::is_formattable<T>::value;

/// A value for people: as it is formatted, or whether a pointer is set; "?" when neither can be said.
template <class T>
std::string textOf(const T& value) {
  if constexpr (Formattable<T>) {
    return fmt::format("{}", value);
  } else if constexpr (Kelp::isPtr<T>) {
    return value ? "set" : "null";
  } else {
    return "?";
  }
}

/// A single value with a plain setter.
template <class Self, auto Member>
class ValueAttribute final : public Attribute {
 public:
  using T = std::remove_cvref_t<decltype(std::declval<Self&>().*Member)>;
  using Setter = bool (Self::*)(T);

  constexpr explicit ValueAttribute(std::string_view name, Setter setter = nullptr)
      : Attribute(name, Kind::value), setter_(setter) {}
  std::any get(const Reflected& object) const override { return static_cast<const Self&>(object).*Member; }
  bool set(Reflected& object, const std::any& value) const override {
    const T* typed = std::any_cast<T>(&value);
    if (!typed || !setter_) return false;
    (static_cast<Self&>(object).*setter_)(*typed);
    return true;
  }
  std::string text(const Reflected& object) const override {
    return textOf(static_cast<const Self&>(object).*Member);
  }

 private:
  Setter setter_;
};

/// A single owned entity, read through reflection as Kelp::Ptr to const.
template <class Self, auto Member>
class ChildAttribute final : public Attribute {
 public:
  constexpr explicit ChildAttribute(std::string_view name) : Attribute(name, Kind::value) {}
  std::any get(const Reflected& object) const override {
    return (static_cast<const Self&>(object).*Member).ptr();
  }
  bool set(Reflected&, const std::any&) const override { return false; }
  std::string text(const Reflected& object) const override {
    return static_cast<const Self&>(object).*Member ? "set" : "null";
  }
};

/// A map, read through reflection as a pointer to it.
template <class Self, auto Member>
class CollectionAttribute final : public Attribute {
 public:
  constexpr explicit CollectionAttribute(std::string_view name) : Attribute(name, Kind::collection) {}
  std::any get(const Reflected& object) const override { return &(static_cast<const Self&>(object).*Member); }
  bool set(Reflected&, const std::any&) const override { return false; }
  std::string text(const Reflected& object) const override {
    return std::to_string((static_cast<const Self&>(object).*Member).size());
  }
};

}  // namespace Zeb
