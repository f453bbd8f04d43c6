#pragma once

#include <Zeb/Entity.h>

#include <functional>
#include <string>
#include <vector>

/// Writes down what one entity announces during its lifetime.
class ChangeLog : public Zeb::Notifiee {
 public:
  explicit ChangeLog(const Zeb::Entity& entity) { entity.publisher().subscribe(*this); }

  void handleChange(const Zeb::Change& change) override {
    names_.emplace_back(change.attribute.name());
    if (then) then(change);
  }

  /// The attributes that changed, in the order of the announcements.
  const std::vector<std::string>& names() const { return names_; }
  void clear() { names_.clear(); }
  std::function<void(const Zeb::Change&)> then;

 private:
  std::vector<std::string> names_;
};
