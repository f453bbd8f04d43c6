#include <agent/core/Document.h>
#include <agent/show/Documents.h>
#include <agent/show/ListJson.h>

#include <deque>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// The lists one after the other, each as it is when its turn comes. Lists and rules that are deleted
/// meanwhile are left out.
class ListsDocument final : public Document {
 public:
  ListsDocument(const World& world, const std::string& name)
      : world_(world), reader_(world.core, &world.zero, world.remarks) {
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
    while (hasRoom(text, start)) {
      if (inList_) {
        addRules(text, start);
      } else if (!keys_.empty()) {
        beginList(text);
      } else {
        text += "],\"undefined\":[";
        Elements elements;
        for (const auto& key : undefined_) elements.add(text, undefinedJson(reader_.head(key)));
        text += "],\"open\":" + lineOf(world_.openings ? world_.openings() : Json::array()) + "}";
        return false;
      }
    }
    return true;
  }

 private:
  void beginList(std::string& text) {
    key_ = std::move(keys_.front());
    keys_.pop_front();
    Json head = headJson(reader_.head(key_));
    head["published"] = published();
    if (const auto cleared = world_.zero.cleared(key_.second)) head["cleared"] = *cleared;
    lists_.add(text, openObject(head));
    text += "\"rules\":[";
    rules_ = {};
    ids_ = reader_.ruleIds(key_);
    nextId_ = 0;
    inList_ = true;
  }

  void addRules(std::string& text, size_t start) {
    for (; nextId_ < ids_.size() && hasRoom(text, start); ++nextId_) {
      if (const auto rule = reader_.rule(key_, ids_[nextId_])) rules_.add(text, ruleJson(*rule));
    }
    if (nextId_ < ids_.size()) return;
    text += "]}";
    inList_ = false;
  }

  bool published() const {
    const auto status = world_.core.inForce().status();
    const auto lists = status ? status->status(key_.first) : nullptr;
    return lists && lists->acl(key_.second);
  }

  const World& world_;
  const ListReader reader_;
  std::deque<ListReader::Key> keys_;
  std::vector<ListReader::Key> undefined_;
  bool begun_ = false;
  Elements lists_;

  // The list that is being written.
  bool inList_ = false;
  ListReader::Key key_;
  Elements rules_;
  std::vector<Kiv::UniqueId> ids_;
  size_t nextId_ = 0;
};

}  // namespace

std::unique_ptr<Document> listsDocument(const World& world, const ShowOptions& options) {
  return std::make_unique<ListsDocument>(world, options.list);
}

}  // namespace Agent
