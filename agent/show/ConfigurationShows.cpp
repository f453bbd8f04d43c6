// The configuration in force, as text that `velo apply` takes; and how it came to be.
#include <agent/change/Difference.h>
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
    std::string other = name + "." + sourceTitle(source_);
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

/// Members `revision`, another one after every change of a source; `text`: the sources one below the other,
/// each below a line with its name if there are several; and `whole`: false when the configuration has
/// changed while the text was made, so that its first part says what was before, and the rest what is now.
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
      text += openObject({{"source", only_.empty() ? Json() : Json(only_)},
                          {"files", world_.paths()},
                          {"revision", version_}}) +
              "\"text\":\"";
    std::string piece;
    while (at_ < names_.size() && piece.size() < pieceOctets) {
      if (writeMore(piece)) break;
      ++at_;
      writer_ = {};
      titled_ = false;
    }
    // Without the quotation marks. A piece ends with a statement, so that no character is cut apart.
    const std::string quoted = lineOf(Json(piece));
    text += std::string_view(quoted).substr(1, quoted.size() - 2);
    if (at_ < names_.size()) return true;
    text += fmt::format("\",\"whole\":{}}}", sources().version == version_);
    return false;
  }

 private:
  const Sources& sources() const { return world_.sources(); }

  /// Writes some more of the current source; false when all of it is written.
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

Json changeJson(const Change& change) {
  return {{"number", change.number},       {"time", change.time},
          {"what", change.what},           {"who", change.who},
          {"source", change.source},       {"summary", change.summary},
          {"kept", change.text != nullptr}};
}

/// One change: `text`, the source's content behind it, and `difference`; null when they are not kept.
class ChangeDocument final : public Document {
 public:
  explicit ChangeDocument(std::shared_ptr<const Change> change) : change_(std::move(change)) {}

  bool next(std::string& text) override {
    if (!std::exchange(begun_, true)) {
      text += openObject({{"change", changeJson(*change_)}}) + "\"text\":" + (change_->text ? "\"" : "null");
      return true;
    }
    if (change_->text && !textIsWritten_) {
      const std::string quoted = lineOf(Json(piece(*change_->text)));
      text += std::string_view(quoted).substr(1, quoted.size() - 2);
      if (at_ < change_->text->size()) return true;
      text += '"';
      textIsWritten_ = true;
      at_ = 0;
      return true;
    }
    if (!std::exchange(differenceIsBegun_, true)) text += ",\"difference\":";
    text += change_->difference ? piece(*change_->difference) : "null";
    if (change_->difference && at_ < change_->difference->size()) return true;
    text += '}';
    return false;
  }

 private:
  /// The next piece, to the end of a line if there is one: no character is cut apart there.
  std::string piece(const std::string& whole) {
    size_t end = std::min(at_ + pieceOctets, whole.size());
    const size_t line = end < whole.size() ? whole.rfind('\n', end) : std::string::npos;
    if (line != std::string::npos && line >= at_) end = line + 1;
    while (end < whole.size() && end > at_ + 1 && (static_cast<unsigned char>(whole[end]) & 0xc0) == 0x80)
      --end;
    std::string text = whole.substr(at_, end - at_);
    at_ = end;
    return text;
  }

  const std::shared_ptr<const Change> change_;
  bool begun_ = false, textIsWritten_ = false, differenceIsBegun_ = false;
  size_t at_ = 0;
};

std::unique_ptr<Document> historyDocument(const World& world, const ShowOptions& options) {
  Json changes = Json::array();
  for (const auto& change : world.history().changes()) {
    if (std::to_string(change->number) == options.list) return std::make_unique<ChangeDocument>(change);
    changes.push_back(changeJson(*change));
  }
  return wholeDocument({{"changes", std::move(changes)}});
}

std::string historyText(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {{"change", "when", "what", "source", "summary", "who"}};
  const auto add = [&](const Json& change) {
    lines.push_back({valueText(change.at("number")), timeText(change.at("time").get<double>(), style.now),
                     valueText(change.at("what")), valueText(change.at("source")),
                     valueText(change.at("summary")), valueText(change.at("who"))});
  };
  const std::vector<bool> numbers = {true, false, false, false, false, false};
  if (document.contains("changes")) {
    for (const Json& change : document.at("changes")) add(change);
    return tableText(lines, numbers, style.colour);
  }
  add(document.at("change"));
  const std::string head = tableText(lines, numbers, style.colour);
  if (document.at("difference").is_null()) return head + "\nits text is not kept any more\n";
  const std::string text =
      document.at("text").is_null() ? "(the source is gone)\n" : document.at("text").get<std::string>();
  return fmt::format("{}\n{}\n{}", head, differenceText(document.at("difference"), style.colour), text);
}

constexpr Show configurationRows[] = {
    {"history", "[N]", "the last changes of the configuration; of one its difference, and the text behind it",
     historyDocument, historyText},
    {"configuration", "",
     "the configuration in force, as text that velo apply takes; --source NAME: of one source",
     configurationDocument, shownConfigurationText, false, true},
};

}  // namespace

std::span<const Show> configurationShows() { return configurationRows; }

}  // namespace Agent
