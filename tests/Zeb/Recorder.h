#pragma once

#include <Zeb/Entity.h>
#include <fmt/format.h>

#include <functional>
#include <string>

/// A subscriber that writes its name, the attribute and, when told to, more into a text, and then does what
/// the test wants done in its handler.
class Recorder : public Zeb::Notifiee {
 public:
  using Act = std::function<void(const Zeb::Change&)>;

  Recorder(std::string name, std::string& text, Act act = nullptr)
      : name_(std::move(name)), text_(text), act_(std::move(act)) {}
  Recorder(std::string name, std::string& text, const Zeb::Entity& entity, Act act = nullptr)
      : Recorder(std::move(name), text, std::move(act)) {
    entity.publisher().subscribe(*this);
  }

  void actIs(Act act) { act_ = std::move(act); }
  void handleChange(const Zeb::Change& change) override {
    text_ += name_ + " ";
    const Act act = act_;  // the handler may destroy this object
    if (act) act(change);
  }

 private:
  std::string name_;
  std::string& text_;
  Act act_;
};
