#include <agent/config/Cursor.h>
#include <agent/config/Nearest.h>
#include <agent/models/Leaves.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>

namespace Models {

namespace {

using Take = std::function<void(size_t row, const Found&)>;

/// One object with all that is inside it.
class Walk {
 public:
  Walk(const std::vector<Leaf>& table, const Take& take) : table_(table), take_(take) {}

  /// `prefix` is the path of the object in the table, empty or with a slash behind it.
  void object(const Found& found, const std::string& prefix);

 private:
  static constexpr size_t none = SIZE_MAX;

  /// The first row that is at a path or below it.
  size_t rowOf(std::string_view path) const;
  void member(const Found& found, const std::string& path, size_t row);
  void leaf(const Found& found, const Leaf& leaf, size_t row);
  void values(const Found& found, const Leaf& leaf, size_t row);
  void entries(const Found& found, const Leaf& leaf, size_t row);
  void unknown(const Found& found, const std::string& prefix) const;
  void startEntries() {
    entry_ = 0;
    keys_.clear();
  }

  const std::vector<Leaf>& table_;
  const Take& take_;
  size_t entry_ = 0;              ///< of the list that is being read
  std::set<std::string> keys_{};  ///< of its entries
};

size_t Walk::rowOf(std::string_view path) const {
  for (size_t i = 0; i < table_.size(); ++i) {
    const auto known = table_[i].path;
    if (known.starts_with(path) && (known.size() == path.size() || known[path.size()] == '/')) return i;
  }
  return none;
}

/// A name as tables have it. Models without modules have names with colons in them.
std::string nameIn(const Node& node, std::string_view module) {
  if (module.empty()) return node.fullName();
  const bool own = node.module == module || (node.module.empty() && !node.xml);
  return own ? node.name : fmt::format("{}:{}", node.module, node.name);
}

void Walk::object(const Found& found, const std::string& prefix) {
  if (found.node.kind != Node::Kind::object) return found.refuse("an object");
  struct Member {
    const Node* node;
    std::string name;
    size_t row;
  };
  std::vector<Member> members;
  for (const Node& node : found.node.members) {
    auto name = nameIn(node, found.module);
    const size_t row = rowOf(prefix + name);
    members.push_back({&node, std::move(name), row});
  }
  std::stable_sort(members.begin(), members.end(),
                   [](const auto& a, const auto& b) { return a.row < b.row; });
  const Member* before = nullptr;
  for (const Member& each : members) {
    const Found here = found.below(*each.node, fmt::format("{}/{}", found.path, printable(each.name)));
    const bool again = before && before->name == each.name;
    if (!again) startEntries();
    const bool mayBeAgain = each.row != none && each.node->xml &&
                            table_[each.row].path == prefix + each.name &&
                            (table_[each.row].kind == Kind::entries || table_[each.row].kind == Kind::values);
    before = &each;
    if (again && !mayBeAgain) {
      here.twice();
    } else if (each.row == none) {
      unknown(here, prefix);
    } else {
      member(here, prefix + each.name, each.row);
    }
  }
}

void Walk::unknown(const Found& found, const std::string& prefix) const {
  if (found.node.xml && found.node.module.empty()) {
    return found.report.mistake(found.node.at,
                                fmt::format("an element {} without a namespace in {}", found.node.name,
                                            found.path.substr(0, found.path.rfind('/'))),
                                "elements in the namespace of their module");
  }
  std::vector<std::string_view> names;
  for (const Leaf& leaf : table_) {
    if (!leaf.path.starts_with(prefix)) continue;
    const auto rest = leaf.path.substr(prefix.size());
    const auto name = rest.substr(0, rest.find('/'));
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  constexpr size_t most = 12;
  const bool few = names.size() <= most;
  auto expected = few ? Config::anyOf(names) : std::string("a leaf that the model has");
  found.report.mistake(found.node.at, fmt::format("the unknown {}", found.path),
                       Config::orNearest(std::move(expected), found.node.name, names));
}

void Walk::member(const Found& found, const std::string& path, size_t row) {
  const Leaf& leafRow = table_[row];
  if (leafRow.path != path) return object(found, path + "/");
  switch (leafRow.kind) {
    case Kind::inside:
      if (found.node.kind == Node::Kind::object) take_(row, found);
      return object(found, path + "/");
    case Kind::ignored:
      return found.report.warn(found.node.at, "leaf-ignored",
                               fmt::format("{} is not kept: it has no effect on traffic", found.path));
    case Kind::refused:
      return found.refuse(fmt::format("it left out: {}", leafRow.why));
    case Kind::entries:
      return entries(found, leafRow, row);
    case Kind::values:
      return values(found, leafRow, row);
    case Kind::whole:
      return take_(row, found);
    default:
      return leaf(found, leafRow, row);
  }
}

std::string expectedNumber(const Leaf& leaf) {
  return fmt::format("{}a number from {} to {}", leaf.kind == Kind::digits ? "the text of " : "", leaf.low,
                     leaf.high);
}

/// The text of a leaf that is to be one; XML does not tell an empty text from an object without members.
std::optional<std::string_view> textOf(const Node& node) {
  if (node.kind == Node::Kind::text) return node.value;
  if (node.xml && node.members.empty()) return "";
  return std::nullopt;
}

void Walk::leaf(const Found& found, const Leaf& leafRow, size_t row) {
  Found value = found;
  if (leafRow.kind == Kind::number || leafRow.kind == Kind::digits) {
    const bool asText = leafRow.kind == Kind::digits || found.node.xml;
    const auto number = found.node.kind == (asText ? Node::Kind::text : Node::Kind::number)
                            ? Config::decimal(found.node.value)
                            : std::nullopt;
    if (!number || *number < leafRow.low || *number > leafRow.high)
      return found.refuse(expectedNumber(leafRow));
    value.number = *number;
    return take_(row, value);
  }
  if (leafRow.kind == Kind::any && found.node.kind == Node::Kind::number) return take_(row, value);
  const auto text = textOf(found.node);
  if (!text) return found.refuse("a text");
  value.text = *text;
  if (leafRow.kind == Kind::identity && !found.node.valueModule.empty()) {
    if (found.node.valueModule != found.module && leafRow.why != found.node.valueModule)
      return found.refuse(fmt::format("a name of {}", leafRow.why.empty() ? found.module : leafRow.why));
    value.text.remove_prefix(value.text.find(':') + 1);
  }
  take_(row, value);
}

void Walk::values(const Found& found, const Leaf& leafRow, size_t row) {
  if (found.node.xml) return take_(row, found);
  if (found.node.kind != Node::Kind::array) return found.refuse("an array");
  for (const Node& element : found.node.members) {
    Found value = found.below(element, found.path);
    if (!element.isLeaf()) {
      value.refuse("texts or numbers in it");
      continue;
    }
    if (element.valueModule == leafRow.why && !leafRow.why.empty())
      value.text.remove_prefix(value.text.find(':') + 1);
    take_(row, value);
  }
}

/// The key of an entry, its leaves with blanks between them; nothing when one is not there.
std::optional<std::string> keyOf(const Node& entry, std::string_view keys) {
  std::string all;
  while (!keys.empty()) {
    const size_t end = std::min(keys.find(','), keys.size());
    const Node* key = entry.find(keys.substr(0, end));
    if (!key || !key->isLeaf()) return std::nullopt;
    all += fmt::format("{}{}", all.empty() ? "" : " ", key->value);
    keys.remove_prefix(std::min(end + 1, keys.size()));
  }
  return all;
}

/// "[KEY]" as it is written in paths.
std::string inPath(const std::optional<std::string>& key, size_t index) {
  if (!key) return fmt::format("[#{}]", index);
  return fmt::format("[{}]", printable(*key));
}

void Walk::entries(const Found& found, const Leaf& leafRow, size_t row) {
  const auto one = [&](const Node& node) {
    const auto key = keyOf(node, leafRow.why);
    const Found entry = found.below(node, found.path + inPath(key, ++entry_));
    if (node.kind != Node::Kind::object) return entry.refuse("an object");
    if (!key) return entry.miss(fmt::format("its key ({})", leafRow.why));
    if (!keys_.insert(*key).second) return entry.twice();
    take_(row, entry);
  };
  if (found.node.xml) return one(found.node);
  if (found.node.kind != Node::Kind::array) return found.refuse("an array");
  for (const Node& node : found.node.members) one(node);
}

}  // namespace

void readLeaves(const Found& object, const std::vector<Leaf>& table, const Take& take) {
  Walk(table, take).object(object, "");
}

}  // namespace Models
