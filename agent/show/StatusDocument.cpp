#include <agent/core/Document.h>
#include <agent/show/Documents.h>
#include <agent/show/RuleNames.h>
#include <agent/show/StatusPieces.h>

#include <fmt/format.h>
#include <deque>
#include <optional>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// The published status, list by list. A list that is deleted before its turn comes is left out.
class StatusDocument final : public Document {
 public:
  StatusDocument(const World& world, bool summary)
      : world_(world), withRules_(!summary), status_(world.core.inForce().status()) {
    for (const auto type : Acl::aclTypes) {
      if (status_ && status_->status(type)) types_.push_back(type);
    }
  }

  bool next(std::string& text) override {
    const size_t start = text.size();
    if (!begun_) begin(text);
    // Rules that are only counted take time as well.
    visited_ = 0;
    while (hasRoom(text, start) && visited_ < mostVisited) {
      if (rule_) {
        addRules(text, start);
      } else if (list_) {
        beginList(text);
      } else if (!types_.empty()) {
        beginType(text);
      } else {
        text += status_ ? "}}}" : "}";
        return false;
      }
    }
    return true;
  }

 private:
  using ListMap = std::remove_cvref_t<decltype(std::declval<const Acl::AclTypeStatus&>().acl())>;
  using RuleMap = std::remove_cvref_t<decltype(std::declval<const Acl::AclStatus&>().ruleStatus())>;

  void begin(std::string& text) {
    begun_ = true;
    Json head = {{"started", world_.started}};
    head["configuration"] = world_.configuration ? world_.configuration() : Json(nullptr);
    text += openObject(head);
    text += "\"status\":";
    if (!status_) {
      text += "null";
      return;
    }
    text += openObject(capabilitiesJson(*status_));
    text += "\"status\":{";
  }

  void beginType(std::string& text) {
    const Acl::AclType type = types_.front();
    types_.pop_front();
    type_ = status_->status(type);
    if (!type_) return;
    all_.name(text, Acl::stringValue(type));
    text += openObject({{"intf", bindingsStatusJson(*type_)}});
    text += "\"acl\":{";
    lists_ = {};
    list_.emplace(type_->acl().begin());
  }

  void beginList(std::string& text) {
    if (!*list_) {
      list_.reset();
      text += "}}";
      return;
    }
    owner_ = list_->value().ptr();
    lists_.name(text, list_->key().view());
    list_->next();
    text += openObject(listStatusJson(*owner_));
    if (withRules_) text += "\"ruleStatus\":{";
    rules_ = {};
    count_ = packets_ = 0;
    for (auto at = owner_->implicitRuleStatus().begin(); at; at.next()) packets_ += at.value().packets;
    rule_.emplace(owner_->ruleStatus().begin());
  }

  void addRules(std::string& text, size_t start) {
    for (; *rule_ && hasRoom(text, start) && visited_ < mostVisited; rule_->next(), ++visited_) {
      ++count_;
      packets_ += rule_->value().packets;
      if (!withRules_) continue;
      rules_.name(text, rule_->key().str());
      text += lineOf(ruleStatusJson(rule_->value()));
    }
    if (*rule_) return;
    rule_.reset();
    text += withRules_ ? "}}" : fmt::format("\"rules\":{},\"packets\":{}}}", count_, packets_);
  }

  static constexpr size_t mostVisited = 1000;

  const World& world_;
  const bool withRules_;
  const Kelp::Ptr<const Acl::StatusDp> status_;
  std::deque<Acl::AclType> types_;
  bool begun_ = false;
  Elements all_, lists_, rules_;
  size_t visited_ = 0;                // rules, in this piece
  uint64_t count_ = 0, packets_ = 0;  // of the current list

  // How far it is. The iterators point into maps of entities that are held here, so that the maps stay.
  Kelp::Ptr<const Acl::AclTypeStatus> type_;
  std::optional<ListMap::Iterator> list_;
  Kelp::Ptr<const Acl::AclStatus> owner_;
  std::optional<RuleMap::Iterator> rule_;
};

/// The match counters, collection by collection.
class CountersDocument final : public Document {
 public:
  CountersDocument(const World& world, const std::string& list)
      : world_(world), names_(world.core), list_(list) {
    for (auto& collection : world.core.inForce().counters()) collections_.push_back(std::move(collection));
  }

  bool next(std::string& text) override {
    const size_t start = text.size();
    if (!begun_) {
      text += openObject({{"cleared", clearedJson(world_.zero)}});
      text += "\"counters\":[";
      begun_ = true;
    }
    // Counters of other lists are passed over, which takes time as well.
    for (size_t visited = 0; hasRoom(text, start) && visited < mostVisited; ++visited) {
      if (at_ && *at_) {
        add(text);
        at_->next();
      } else if (!collections_.empty()) {
        collection_ = std::move(collections_.front());
        collections_.pop_front();
        at_.emplace(collection_->counterCollection().begin());
      } else {
        text += "]}";
        return false;
      }
    }
    return true;
  }

 private:
  static constexpr size_t mostVisited = 1000;
  using Coll = Velo::Counter::VeloDpAclCounterColl;

  void add(std::string& text) {
    const auto& key = at_->key();
    if (!list_.empty() && key.aclName != list_) return;
    const auto& counter = *at_->value();
    const ZeroLine::Counted counted = world_.zero.above(key, counter);
    elements_.add(text, Json{{"collection", collection_->name().view()},
                             {"direction", Acl::stringValue(key.direction)},
                             {"type", Acl::stringValue(key.aclType)},
                             {"list", key.aclName.view()},
                             {"rule", numberJson(names_.number(key.aclType, key.aclName, key.ruleId))},
                             {"id", key.ruleId.str()},
                             {"packets", counted.packets},
                             {"bytes", counted.bytes},
                             {"lastMatch", counter.lastUpdateTime().seconds()}});
  }

  const World& world_;
  const RuleNames names_;
  const std::string list_;
  std::deque<Kelp::Ptr<Coll>> collections_;
  bool begun_ = false;
  Elements elements_;
  Kelp::Ptr<Coll> collection_;
  std::optional<Coll::counterCollectionMap::Iterator> at_;
};

}  // namespace

std::unique_ptr<Document> statusDocument(const World& world, const ShowOptions& options) {
  return std::make_unique<StatusDocument>(world, options.summary);
}

std::unique_ptr<Document> countersDocument(const World& world, const ShowOptions& options) {
  return std::make_unique<CountersDocument>(world, options.list);
}

}  // namespace Agent
