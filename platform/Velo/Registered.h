#pragma once

#include <Kelp/Ptr.h>

namespace Velo {

/// Who is registering objects at the moment. The plugin manager sets it around every call into a plugin, so
/// that registries can later release everything that this plugin gave them.
class Registrant {
 public:
  using Id = const void*;

  Id current() const { return current_; }

  /// Names the registrant for a scope.
  class Scope {
   public:
    Scope(Registrant& registrant, Id id) : registrant_(registrant), before_(registrant.current_) {
      registrant_.current_ = id;
    }
    ~Scope() { registrant_.current_ = before_; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    Registrant& registrant_;
    Id before_;
  };

 private:
  Id current_ = nullptr;
};

/// A registered object and who registered it.
template <class T>
struct Registered {
  Kelp::Ptr<T> object;
  Registrant::Id by = nullptr;
  bool operator==(const Registered&) const = default;
};

}  // namespace Velo
