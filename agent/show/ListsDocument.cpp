#include <agent/core/Document.h>
#include <agent/show/Documents.h>
#include <agent/show/ListJson.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <set>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// The lists one after the other, each as it is when its turn comes. Lists and rules that are deleted
/// meanwhile are left out.
class ListsDocument final : public Document {
 public:
  ListsDocument(const World& world, ShowOptions options)
      : world_(world),
        options_(std::move(options)),
        interfaces_(interfacesOf(world.core, options_.interface)),
        reader_(world.core, &world.zero, world.remarks) {
    const std::string& name = options_.list;
    for (auto& key : reader_.defined()) {
      if (name.empty() || key.second == name) keys_.push_back(std::move(key));
    }
    for (auto& key : reader_.undefined()) {
      if (name.empty() || key.second == name) undefined_.push_back(std::move(key));
    }
  }

  bool next(std::string& text) override {
    const size_t start = text.size();
    if (!begun_) {
      text += openObject({{"cleared", clearedJson(world_.zero)}});
      text += "\"lists\":[";
      begun_ = true;
    }
    for (visited_ = 0; hasRoom(text, start) && visited_ < mostVisited; ++visited_) {
      if (inList_) {
        addRules(text, start);
      } else if (!keys_.empty()) {
        beginList(text);
      } else {
        text += "],\"undefined\":[";
        Elements elements;
        for (const auto& key : undefined_) {
          const ListReport list = reader_.head(key);
          if (isSelected(list)) elements.add(text, undefinedJson(list));
        }
        text += "],\"open\":" + lineOf(world_.openings ? world_.openings() : Json::array()) + "}";
        return false;
      }
    }
    return true;
  }

 private:
  using Rules = ShowOptions::Rules;
  /// Lists and rules that are looked at in a piece, whether they are shown or not.
  static constexpr size_t mostVisited = 1000;

  /// The interface, and the port-channel whose lists its frames meet, too.
  static std::set<std::string> interfacesOf(const Core& core, const std::string& name) {
    if (name.empty()) return {};
    std::set<std::string> names = {name};
    for (const auto& [channel, members] : core.portChannels().all()) {
      for (const auto& member : members) {
        if (member.name().view() == name) names.insert(channel.name().str());
      }
    }
    return names;
  }

  bool isSelected(const ListReport& list) const {
    if (!options_.source.empty() && (list.sources.empty() || list.sources.front() != options_.source))
      return false;
    return options_.interface.empty() ||
           std::any_of(list.bindings.begin(), list.bindings.end(), [this](const BindingReport& binding) {
             return interfaces_.contains(binding.interface);
           });
  }

  bool isSelected(const MatchCount& count) const {
    return options_.rules == Rules::all || (options_.rules == Rules::hit) == (count.in + count.out > 0);
  }

  void beginList(std::string& text) {
    key_ = std::move(keys_.front());
    keys_.pop_front();
    ListReport list = reader_.head(key_);
    if (!isSelected(list)) return;
    const bool dropHit = list.implicitDrop && list.implicitDrop->in + list.implicitDrop->out > 0;
    head_ = std::move(list);
    ids_ = reader_.ruleIds(key_);
    nextId_ = 0;
    inList_ = true;
    if (options_.rules == Rules::all || (options_.rules == Rules::hit && dropHit)) writeHead(text);
  }

  /// To be called before the first thing that is shown of a list: one of which nothing is shown has no head.
  void writeHead(std::string& text) {
    Json head = headJson(*head_);
    head_.reset();
    head["published"] = published();
    if (const auto cleared = world_.zero.cleared(key_.second)) head["cleared"] = *cleared;
    lists_.add(text, openObject(head));
    text += "\"rules\":[";
    rules_ = {};
  }

  void addRules(std::string& text, size_t start) {
    for (; nextId_ < ids_.size() && hasRoom(text, start) && visited_ < mostVisited; ++nextId_, ++visited_) {
      const auto rule = reader_.rule(key_, ids_[nextId_]);
      if (!rule || !isSelected(rule->matches)) continue;
      if (head_) writeHead(text);
      rules_.add(text, ruleJson(*rule));
    }
    if (nextId_ < ids_.size()) return;
    if (!head_) text += "]}";
    head_.reset();
    inList_ = false;
  }

  bool published() const { return world_.core.inForce().statusOf(key_.first, key_.second) != nullptr; }

  const World& world_;
  const ShowOptions options_;
  const std::set<std::string> interfaces_;  // that are meant by the option
  const ListReader reader_;
  std::deque<ListReader::Key> keys_;
  std::vector<ListReader::Key> undefined_;
  bool begun_ = false;
  size_t visited_ = 0;  // in the piece that is being made
  Elements lists_;

  // The list that is being written.
  bool inList_ = false;
  std::optional<ListReport> head_;  // until it is written
  ListReader::Key key_;
  Elements rules_;
  std::vector<Kiv::UniqueId> ids_;
  size_t nextId_ = 0;
};

}  // namespace

std::unique_ptr<Document> listsDocument(const World& world, const ShowOptions& options) {
  return std::make_unique<ListsDocument>(world, options);
}

}  // namespace Agent
