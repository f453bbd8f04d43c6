#include <agent/config/Titles.h>
#include <agent/config/Writer.h>
#include <agent/models/Forms.h>
#include <agent/models/Writer.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace Models {

namespace {

struct FormatName {
  std::string_view name;
  Format format;
  const Form& (*form)();  ///< null: the configuration text
};
constexpr FormatName formats[] = {
    {"text", Format::text, nullptr},
    {"ietf", Format::ietf, ietfForm},
    {"openconfig", Format::openConfig, openConfigForm},
    {"sonic", Format::sonic, sonicForm},
};

/// One configuration on its way into a form.
class FormWriter {
 public:
  FormWriter(const Config::Model& model, const Form& form, bool lossy)
      : model_(model), form_(form), lossy_(lossy) {}
  Written write();

 private:
  /// A rule with its parts, and why it cannot be said.
  struct Sayable {
    const Config::Rule* rule;
    std::vector<Config::Rule> parts;
    std::string why;
  };

  bool takes(const Config::List& list);
  void writeList(const Config::List& list);
  Sayable sayable(const Config::Rule& rule) const;
  void check(const Config::List& list, std::vector<Sayable>& rules);
  void checkAttributes(const Config::List& list, const Acl::RuleBase& rule);
  void writeBindings();
  void leaveRest();
  /// What cannot be said: refused, or left out if `may` says that nothing passes then that is dropped now.
  void leave(std::string sentence, bool may = true) {
    (lossy_ && may ? written_.leftOut : written_.refused).push_back(std::move(sentence));
  }
  /// What has no effect on traffic.
  void lose(std::string sentence) { written_.leftOut.push_back(std::move(sentence)); }

  const Config::Model& model_;
  const Form& form_;
  const bool lossy_;
  Written written_;
  std::vector<WrittenList> lists_;
  std::set<Config::ListKey> taken_;
  std::map<Config::BindingKey, std::string> bindings_;
};

bool isBound(const Config::Model& model, const Config::List& list) {
  return std::any_of(model.bindings.begin(), model.bindings.end(), [&](const auto& binding) {
    return binding.first.type == list.type && binding.second == list.name;
  });
}

/// Whether the form has such a list, under a name that no list before it has.
bool FormWriter::takes(const Config::List& list) {
  std::string why = form_.whyNoList(list, model_);
  const bool known =
      std::any_of(taken_.begin(), taken_.end(), [&](const auto& key) { return key.second == list.name; });
  if (form_.oneNameSpace && known) why = "lists of two kinds with one name";
  if (why.empty()) return true;
  // Without its list a place would be open.
  leave(fmt::format("{}: {} cannot say {}", Config::listTitle(list.type, list.name), form_.name, why),
        !isBound(model_, list));
  return false;
}

FormWriter::Sayable FormWriter::sayable(const Config::Rule& rule) const {
  Sayable result{&rule, {}, {}};
  auto parts = partsOf(rule, form_.notEqual);
  if (!parts) {
    result.why = fmt::format("more than {} combinations", mostParts);
    return result;
  }
  for (const auto& part : *parts) {
    if (result.why.empty()) form_.entry({1, part}, &result.why);
  }
  result.parts = std::move(*parts);
  return result;
}

/// Mirroring and logging do not decide what passes.
void FormWriter::checkAttributes(const Config::List& list, const Acl::RuleBase& rule) {
  const auto where = Config::ruleOfList(list.type, list.name, rule.sequence);
  if (!rule.mirrorSession.empty())
    leave(fmt::format("{}: {} cannot say mirror session {}", where, form_.name, rule.mirrorSession.view()));
  if (rule.log && !form_.logs) leave(fmt::format("{}: {} cannot say log", where, form_.name));
}

/// Of what cannot be said a permit may go: what it lets pass is dropped then, or is permitted by another
/// rule. A deny may go only if no permit behind it could let pass what it drops.
void FormWriter::check(const Config::List& list, std::vector<Sayable>& rules) {
  bool permitBehind = false;
  for (auto rule = rules.rbegin(); rule != rules.rend(); ++rule) {
    const auto& base = Config::common(*rule->rule);
    const bool permits = base.action == Acl::Action::permit;
    if (rule->why.empty()) {
      permitBehind = permitBehind || permits;
    } else {
      leave(fmt::format("{} ({}): {} cannot say {}", Config::ruleOfList(list.type, list.name, base.sequence),
                        base.text.view(), form_.name, rule->why),
            permits || !permitBehind);
      rule->parts.clear();
    }
  }
}

void FormWriter::writeList(const Config::List& list) {
  std::vector<Sayable> rules;
  bool remarks = !list.pendingRemarks.empty();
  for (const auto& [number, rule] : list.rules) {
    rules.push_back(sayable(rule));
    remarks = remarks || !Config::common(rule).remark.empty();
    checkAttributes(list, Config::common(rule));
  }
  check(list, rules);
  if (remarks && (!form_.remarks || !list.pendingRemarks.empty()))
    lose(fmt::format("{}: remarks that {} has no place for", Config::listTitle(list.type, list.name),
                     form_.name));

  std::vector<std::pair<uint32_t, size_t>> sizes;
  for (const auto& rule : rules) sizes.emplace_back(Config::common(*rule.rule).sequence, rule.parts.size());
  const auto numbers = numbersOf(sizes);
  WrittenList& written = lists_.emplace_back(WrittenList{&list, {}});
  for (size_t i = 0; i < rules.size(); ++i) {
    for (size_t part = 0; part < rules[i].parts.size(); ++part) {
      std::string why;
      Entry entry{numbers[i][part], rules[i].parts[part]};
      std::visit(
          [&](auto& rule) {
            rule.log = rule.log && form_.logs;
            if (part > 0) rule.remark = {};
          },
          entry.rule);
      written.entries.push_back(form_.entry(entry, &why));
    }
  }
  written.entries.push_back(form_.end(list));
}

void FormWriter::writeBindings() {
  for (const auto& [key, name] : model_.bindings) {
    if (taken_.contains({key.type, name})) {
      bindings_.emplace(key, name);
    } else if (!model_.lists.contains({key.type, name})) {
      // It lets everything pass already.
      leave(fmt::format("{}: the list is not defined, which {} cannot say", Config::bindingTitle(key, name),
                        form_.name));
    }
  }
}

void FormWriter::leaveRest() {
  for (const auto& [name, members] : model_.portChannels) {
    const bool bound =
        std::any_of(model_.bindings.begin(), model_.bindings.end(),
                    [&, &channel = name](const auto& binding) { return binding.first.interface == channel; });
    // Without its members no port has its lists.
    leave(fmt::format("port-channel {}: {} cannot say which members it has", name, form_.name), !bound);
  }
  for (const auto& [name, destinations] : model_.mirrorSessions)
    lose(fmt::format("mirror session {}: {} has no place for it", name, form_.name));
  for (const auto& [name, notes] : model_.interfaceNotes)
    lose(fmt::format("interface {}: {} has no place for description and shutdown", name, form_.name));
}

Written FormWriter::write() {
  for (const auto& [key, list] : model_.lists) {
    if (!takes(list)) continue;
    taken_.insert(key);
    writeList(list);
  }
  writeBindings();
  leaveRest();
  if (written_.refused.empty()) written_.document = form_.document(lists_, bindings_).dump(2) + "\n";
  return std::move(written_);
}

}  // namespace

std::optional<Format> formatOf(std::string_view name) {
  for (const auto& row : formats) {
    if (row.name == name) return row.format;
  }
  return std::nullopt;
}

std::string formatNames() {
  std::string all;
  for (const auto& row : formats) all += fmt::format("{}{}", all.empty() ? "" : "|", row.name);
  return all;
}

Written write(const Config::Model& model, Format format, bool lossy) {
  const auto row =
      std::find_if(std::begin(formats), std::end(formats), [&](const auto& r) { return r.format == format; });
  if (!row->form) return {Config::textOf(model), {}, {}};
  return FormWriter(model, row->form(), lossy).write();
}

}  // namespace Models
