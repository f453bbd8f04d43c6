#pragma once

#include "Fixture.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace SmTest {

/// Follows a whole status tree and notes every published change as a line: "ip.acl[A] added",
/// "ip.acl[A].ruleStatus[r1] {0, 0, 100, true}", "ip.acl[A] gone". A generated id reads as "id".
class StatusWrites {
 public:
  explicit StatusWrites(const Kelp::Ptr<Acl::StatusDp>& status) : status_(status) {
    follow(*status, [this](const Zeb::Change& c) {
      if (c.is(Acl::StatusDp::statusAttribute())) type(c.keyAs<AclType>(), true);
    });
    for (auto at = status->status().begin(); at; at.next()) type(at.key(), false);
  }

  /// What was written since the last call.
  std::vector<std::string> take() { return std::exchange(lines_, {}); }
  size_t deletions() const { return deletions_; }
  /// Called after each line, from within the notification.
  std::function<void(const std::string&)> onWrite;

 private:
  static std::string text(const UniqueId& id) {
    return id.value() >> 63 ? "id" : "r" + std::to_string(id.value());
  }
  void note(std::string line) {
    if (line.ends_with(" gone")) ++deletions_;
    lines_.push_back(line);
    if (onWrite) onWrite(line);
  }
  void follow(Zeb::Entity& entity, Watch::Handle handle) {
    watches_[&entity] = std::make_unique<Watch>(entity, std::move(handle));
    held_.push_back(Kelp::Ptr<Zeb::Entity>(&entity));
  }

  void type(AclType key, bool changed) {
    const std::string path = fmt::format("{}", key);
    const auto types = status_->status(key);
    if (types) {
      follow(*types, [this, path, types = types.get()](const Zeb::Change& c) {
        if (c.is(Acl::AclTypeStatus::aclAttribute())) list(path, *types, c.keyAs<Kelp::String>(), true);
        if (c.is(Acl::AclTypeStatus::intfAttribute())) direction(path, *types, c.keyAs<AclDirection>(), true);
      });
      for (auto at = types->acl().begin(); at; at.next()) list(path, *types, at.key(), false);
      for (auto at = types->intf().begin(); at; at.next()) direction(path, *types, at.key(), false);
    }
    if (changed) note(path + (types ? " added" : " gone"));
  }
  void list(const std::string& type, Acl::AclTypeStatus& types, const Kelp::String& name, bool changed) {
    const std::string path = fmt::format("{}.acl[{}]", type, name);
    const auto list = types.acl(name);
    if (list) {
      follow(*list, [this, path, list = list.get()](const Zeb::Change& c) { entry(path, *list, c); });
    }
    if (changed) note(path + (list ? " added" : " gone"));
  }
  void entry(const std::string& path, Acl::AclStatus& list, const Zeb::Change& c) {
    if (c.is(Acl::AclStatus::counterUpdateTimeAttribute())) {
      return note(fmt::format("{}.counterUpdateTime {}", path, list.counterUpdateTime()));
    }
    std::string key, value;
    const auto put = [&](const auto& k, const auto* v) {
      key = k;
      value = v ? fmt::format("{}", *v) : "gone";
    };
    if (c.is(Acl::AclStatus::implicitRuleIdAttribute())) {
      const auto k = c.keyAs<Acl::ImplicitRuleType>();
      const auto* id = list.implicitRuleId(k);
      key = Acl::stringValue(k);
      value = id ? text(*id) : "gone";
    } else if (c.is(Acl::AclStatus::implicitRuleStatusAttribute())) {
      const auto k = c.keyAs<Acl::ImplicitRuleType>();
      put(std::string(Acl::stringValue(k)), list.implicitRuleStatus(k));
    } else {
      const auto k = c.keyAs<UniqueId>();
      put(text(k), list.ruleStatus(k));
    }
    note(fmt::format("{}.{}[{}] {}", path, c.attribute.name(), key, value));
  }
  void direction(const std::string& type, Acl::AclTypeStatus& types, AclDirection key, bool changed) {
    const std::string path = fmt::format("{}.intf[{}]", type, key);
    const auto bindings = types.intf(key);
    if (bindings) {
      follow(*bindings, [this, path, bindings = bindings.get()](const Zeb::Change& c) {
        const auto& intf = c.keyAs<Nimnet::IntfId>();
        const auto* name = bindings->intf(intf);
        note(fmt::format("{}.intf[{}] {}", path, intf, name ? name->view() : "gone"));
      });
    }
    if (changed) note(path + (bindings ? " added" : " gone"));
  }

  const Kelp::Ptr<Acl::StatusDp> status_;
  std::vector<Kelp::Ptr<Zeb::Entity>> held_;
  std::map<Zeb::Entity*, std::unique_ptr<Watch>> watches_;
  std::vector<std::string> lines_;
  size_t deletions_ = 0;
};

}  // namespace SmTest
