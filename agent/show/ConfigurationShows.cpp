// The configuration in force, as text that `velo apply` takes.
#include <agent/config/Writer.h>
#include <agent/core/Document.h>
#include <agent/show/Shows.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// What of one source is in force beside those of higher precedence. Where a group has a name that one of
/// them has, too, it gets another one.
class InForceOf final : public Config::Choice {
 public:
  InForceOf(const Sources& sources, const std::string& source) : sources_(sources), source_(source) {
    sources.forEach([&](const std::string& name, const Config::Model& model) {
      passed_ = passed_ || name == source;
      if (!passed_) higher_.push_back(&model);
    });
  }

  bool hasList(const Config::Model::ListKey& key) const override {
    return isFirst(&Config::Model::lists, key);
  }
  bool hasPortChannel(const std::string& name) const override {
    return isFirst(&Config::Model::portChannels, name);
  }
  bool hasNotes(const std::string& name) const override {
    return isFirst(&Config::Model::interfaceNotes, name);
  }
  bool hasBinding(const Config::BindingKey& key) const override {
    return isFirst(&Config::Model::bindings, key);
  }
  bool hasMirrorSession(const std::string& name) const override {
    return isFirst(&Config::Model::mirrorSessions, name);
  }
  std::string groupName(const std::string& name) const override {
    if (isFirst(&Config::Model::objectGroups, name)) return name;
    std::string other = name + "." + source_;
    while (isGroupAnywhere(other)) other += "'";
    return other;
  }

 private:
  bool isFirst(auto part, const auto& key) const {
    return std::none_of(higher_.begin(), higher_.end(),
                        [&](const Config::Model* model) { return (model->*part).contains(key); });
  }
  bool isGroupAnywhere(const std::string& name) const {
    bool is = false;
    sources_.forEach([&](const std::string&, const Config::Model& model) {
      is = is || model.objectGroups.contains(name);
    });
    return is;
  }

  const Sources& sources_;
  const std::string& source_;
  bool passed_ = false;
  std::vector<const Config::Model*> higher_;
};

/// `text`, a line of a source behind that of the sources before it; and `whole`: false when the configuration
/// changed before the end of the text, which is then partly of the one and partly of the other.
class ConfigurationDocument final : public Document {
 public:
  ConfigurationDocument(const World& world, std::string only)
      : world_(world), only_(std::move(only)), version_(sources().version) {
    sources().forEach([this](const std::string& name, const Config::Model& model) {
      if (only_.empty() ? !(model == Config::Model()) : name == sourceOfTitle(only_)) names_.push_back(name);
    });
  }

  bool next(std::string& text) override {
    if (!std::exchange(begun_, true))
      text += openObject({{"source", only_.empty() ? Json() : Json(only_)}}) + "\"text\":\"";
    std::string piece;
    while (at_ < names_.size() && piece.size() < pieceOctets) {
      if (writeMore(piece)) break;
      ++at_;
      writer_ = {};
      titled_ = false;
    }
    // The inner part of a JSON text: statements have no characters that may not be cut apart.
    const std::string quoted = lineOf(Json(piece));
    text += std::string_view(quoted).substr(1, quoted.size() - 2);
    if (at_ < names_.size()) return true;
    text += fmt::format("\",\"whole\":{}}}", sources().version == version_);
    return false;
  }

 private:
  const Sources& sources() const { return world_.sources(); }

  /// Writes of the current source; false when that was the last of it.
  bool writeMore(std::string& piece) {
    const std::string& name = names_[at_];
    const Config::Model* model = sources().find(name);
    if (!model) return false;
    if (!only_.empty()) return writer_.next(*model, Config::Choice(), piece, pieceOctets);
    if (!std::exchange(titled_, true) && names_.size() > 1) piece += fmt::format("! {}\n", sourceTitle(name));
    return writer_.next(*model, InForceOf(sources(), name), piece, pieceOctets);
  }

  const World& world_;
  const std::string only_;
  const uint64_t version_;
  std::vector<std::string> names_;
  size_t at_ = 0;
  Config::Writer writer_;
  bool begun_ = false, titled_ = false;
};

std::unique_ptr<Document> configurationDocument(const World& world, const ShowOptions& options) {
  return std::make_unique<ConfigurationDocument>(world, options.source);
}

std::string shownConfigurationText(const Json& document, const TextStyle&) {
  return document.at("text").get<std::string>();
}

constexpr Show configurationRows[] = {
    {"configuration", "",
     "the configuration in force, as text that velo apply takes; --source NAME: of one source",
     configurationDocument, shownConfigurationText, false, true},
};

}  // namespace

std::span<const Show> configurationShows() { return configurationRows; }

}  // namespace Agent
