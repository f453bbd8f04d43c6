#pragma once

#include <Acl/AclConfigAggregatorSm.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace TestSupport {

/// Follows a target configuration down to its rules and writes down every announcement, as "config ip",
/// "acl A", "currCfg A", "rule 5".
class TargetLog {
 public:
  explicit TargetLog(const Kelp::Ptr<Acl::Config>& config) : config_(config) {
    listen(config, [this](const Zeb::Change& change) { configChanged(change.keyAs<Acl::AclType>()); });
  }

  std::vector<std::string> taken() { return std::exchange(lines_, {}); }
  std::function<void()> then;

 private:
  class Ear : public Zeb::Notifiee {
   public:
    Ear(const Zeb::Entity& entity, std::function<void(const Zeb::Change&)> heard) : heard_(std::move(heard)) {
      entity.publisher().subscribe(*this);
    }
    void handleChange(const Zeb::Change& change) override { heard_(change); }

   private:
    std::function<void(const Zeb::Change&)> heard_;
  };

  void listen(const Kelp::Ptr<Zeb::Entity>& entity, std::function<void(const Zeb::Change&)> heard) {
    for (const auto& known : kept_) {
      if (known == entity) return;
    }
    kept_.push_back(entity);
    ears_.push_back(std::make_unique<Ear>(*entity, std::move(heard)));
  }
  void line(std::string text) {
    lines_.push_back(std::move(text));
    if (then) then();
  }
  void configChanged(Acl::AclType type) {
    if (const auto lists = config_->config(type)) {
      listen(lists, [this, l = lists.get()](const Zeb::Change& change) {
        const Kelp::String name = change.keyAs<Kelp::String>();
        if (const auto list = l->acl(name)) follow(list);
        line("acl " + name.str());
      });
    }
    line("config " + std::string(Acl::stringValue(type)));
  }
  void follow(const Kelp::Ptr<Acl::AclConfig>& list) {
    listen(list, [this, l = list.get()](const Zeb::Change&) {
      if (const auto rules = l->currCfg()) {
        listen(rules, [this](const Zeb::Change& change) {
          line(fmt::format("rule {}", change.keyAs<Kiv::UniqueId>().value()));
        });
      }
      line("currCfg " + l->name().str());
    });
  }

  const Kelp::Ptr<Acl::Config> config_;
  std::vector<Kelp::Ptr<Zeb::Entity>> kept_;
  std::vector<std::unique_ptr<Ear>> ears_;
  std::vector<std::string> lines_;
};

inline Acl::IpRule numbered(uint32_t sequence) {
  Acl::IpRule rule;
  rule.sequence = sequence;
  return rule;
}

/// A list's IPv4 rules in a source, id to sequence number, made as a whole.
inline void listIs(Acl::Config& source, const Kelp::String& name, const std::map<uint64_t, uint32_t>& rules,
                   Acl::AclType type = Acl::AclType::ip) {
  const auto made = MemSlab::make<Acl::AclSubConfig>();
  for (const auto& [id, sequence] : rules) made->ipRuleByIdIs(Kiv::UniqueId(id), numbered(sequence));
  source.configIs(type)->aclIs(name)->currCfgIs(made);
}

/// A configuration as text, "ip/A{5:10 6:20}", "-" for a list without currCfg; in a fixed order.
inline std::string shown(const Acl::Config& config) {
  std::map<std::string, std::string> lists;
  for (auto type = config.config().begin(); type; type.next()) {
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      std::string rules;
      if (const auto current = std::as_const(*list.value()).currCfg()) {
        std::set<std::string> sorted;
        for (const auto* rule : current->ipRuleById().ordered()) {
          sorted.insert(fmt::format("{}:{}", rule->key.value(), rule->value.sequence()));
        }
        rules = fmt::format("{{{}}}", fmt::join(sorted, " "));
      } else {
        rules = "-";
      }
      lists[fmt::format("{}/{}", type.key(), list.key())] = rules;
    }
  }
  std::string text;
  for (const auto& [name, rules] : lists) text += (text.empty() ? "" : ", ") + name + rules;
  return text;
}

}  // namespace TestSupport
