#include <agent/models/Yang.h>
#include <fmt/format.h>

#include <filesystem>
#ifdef VELO_HAS_YANG
#include <agent/models/YangModules.h>

#include <algorithm>
#include <memory>
#include <set>
#endif

namespace Models {

#ifdef VELO_HAS_YANG

namespace {

/// A document as a tree of libyang. What is wrong with one node is told at its place, and the others go on.
class Validation {
 public:
  Validation(const YangModules& modules, Report& report) : modules_(modules), report_(report) {}
  ~Validation() { lyd_free_all(tree_); }
  Validation(const Validation&) = delete;
  Validation& operator=(const Validation&) = delete;

  void add(const YangRoot& root);
  /// What can be seen only when all is there.
  void finish(const Node& root);

 private:
  /// Where nodes are added: below a node, or at the root.
  struct Place {
    lyd_node* data = nullptr;
    std::string_view module;  ///< of members that name none
  };

  void member(const Place& at, const Node& node);
  void take(const Place& at, const lysc_node& schema, const Node& node);
  void entry(const Place& at, const lysc_node& schema, const Node& node);
  void leaf(const Place& at, const lysc_node& schema, const Node& node);
  void members(lyd_node* data, const Node& node);
  void note(const Place& at, lyd_node* data, const Node& node);
  static std::string valueOf(const lysc_node& schema, const Node& node);
  static std::string_view whyNotWritten(const lysc_type& type, const Node& node);
  void dropState();
  const Node* nodeAt(std::string path) const;
  std::string pathOf(const Place& at, const Node& node) const;
  void refuse(const Place& at, const Node& node, std::string_view expected) {
    report_.mistake(node.at, node.shown() + " at " + pathOf(at, node), std::string(expected));
  }

  const YangModules& modules_;
  Report& report_;
  lyd_node* tree_ = nullptr;
  std::vector<lyd_node*> state_;  ///< the outermost nodes of what is no configuration
};

std::string Validation::pathOf(const Place& at, const Node& node) const {
  if (!at.data) return fmt::format("/{}:{}", at.module, printable(node.name));
  const std::unique_ptr<char, decltype(&free)> above(lyd_path(at.data, LYD_PATH_STD, nullptr, 0), free);
  return fmt::format("{}/{}", above ? above.get() : "", printable(node.name));
}

void Validation::add(const YangRoot& root) { member({nullptr, root.module}, root.node); }

void Validation::members(lyd_node* data, const Node& node) {
  for (const Node& each : node.members) member({data, data->schema->module->name}, each);
}

void Validation::member(const Place& at, const Node& node) {
  const std::string_view module = node.module.empty() ? at.module : std::string_view(node.module);
  const lys_module* const definedBy = modules_.find(module);
  const lysc_node* const schema = definedBy ? lys_find_child(at.data ? at.data->schema : nullptr, definedBy,
                                                             node.name.c_str(), node.name.size(), 0, 0)
                                            : nullptr;
  if (!schema) return refuse(at, node, "what its module has there");
  const bool several = schema->nodetype & (LYS_LIST | LYS_LEAFLIST);
  if (!several || node.xml) return take(at, *schema, node);
  if (node.kind != Node::Kind::array) return refuse(at, node, "an array");
  for (const Node& element : node.members) take(at, *schema, element);
}

void Validation::take(const Place& at, const lysc_node& schema, const Node& node) {
  if (schema.nodetype & (LYS_LEAF | LYS_LEAFLIST)) return leaf(at, schema, node);
  if (schema.nodetype & LYS_ANYDATA) return;  // it may have anything inside
  if (node.kind != Node::Kind::object) return refuse(at, node, "an object");
  if (schema.nodetype == LYS_LIST) return entry(at, schema, node);
  lyd_node* data = nullptr;
  if (lyd_new_inner(at.data, schema.module, schema.name, 0, &data) != LY_SUCCESS)
    return refuse(at, node, modules_.notAllowed());
  note(at, data, node);
  members(data, node);
}

void Validation::entry(const Place& at, const lysc_node& schema, const Node& node) {
  constexpr size_t most = 8;
  std::vector<std::string> keys;
  std::set<std::string_view> names;
  for (const lysc_node* key = lysc_node_child(&schema); key && (key->flags & LYS_KEY); key = key->next) {
    const Node* const given = node.find(key->name);
    if (!given || !(given->isLeaf() || given->xml))
      return refuse(at, node, fmt::format("its key {}", key->name));
    keys.push_back(valueOf(*key, *given));
    names.insert(key->name);
    const LY_ERR result = lyd_value_validate(modules_.context(), key, keys.back().c_str(), keys.back().size(),
                                             nullptr, nullptr, nullptr);
    if (result != LY_SUCCESS && result != LY_EINCOMPLETE) return refuse(at, *given, modules_.notAllowed());
  }
  if (keys.size() > most) return refuse(at, node, fmt::format("a list of at most {} keys", most));
  keys.resize(most);
  lyd_node* data = nullptr;
  // It takes as many keys as the list has.
  if (lyd_new_list(at.data, schema.module, schema.name, 0, &data, keys[0].c_str(), keys[1].c_str(),
                   keys[2].c_str(), keys[3].c_str(), keys[4].c_str(), keys[5].c_str(), keys[6].c_str(),
                   keys[7].c_str()) != LY_SUCCESS)
    return refuse(at, node, modules_.notAllowed());
  note(at, data, node);
  for (const Node& each : node.members) {
    if (!names.contains(each.name)) member({data, schema.module->name}, each);
  }
}

/// The form of RFC 7951, where identities have the names of their modules.
std::string Validation::valueOf(const lysc_node& schema, const Node& node) {
  const LY_DATA_TYPE type = reinterpret_cast<const lysc_node_leaf&>(schema).type->basetype;
  if (type == LY_TYPE_EMPTY) return "";
  if (!node.xml || node.valueModule.empty() || (type != LY_TYPE_IDENT && type != LY_TYPE_UNION))
    return node.value;
  return fmt::format("{}:{}", node.valueModule, node.value.substr(node.value.find(':') + 1));
}

/// How JSON has values of a type (RFC 7951, 6), if it is not this way.
std::string_view Validation::whyNotWritten(const lysc_type& type, const Node& node) {
  const auto unless = [](bool right, std::string_view form) { return right ? std::string_view() : form; };
  switch (type.basetype) {
    case LY_TYPE_UNION:
      return unless(node.isLeaf(), "a value");
    case LY_TYPE_BOOL:
      return unless(node.kind == Node::Kind::boolean, "true or false");
    case LY_TYPE_EMPTY:
      return unless(node.kind == Node::Kind::array && node.members.size() == 1 &&
                        node.members.front().kind == Node::Kind::null,
                    "[null]");
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32:
      return unless(node.kind == Node::Kind::number, "a number");
    default:
      return unless(node.kind == Node::Kind::text, "a text");
  }
}

void Validation::leaf(const Place& at, const lysc_node& schema, const Node& node) {
  const lysc_type& type = *reinterpret_cast<const lysc_node_leaf&>(schema).type;
  const lysc_type& real =
      type.basetype == LY_TYPE_LEAFREF ? *reinterpret_cast<const lysc_type_leafref&>(type).realtype : type;
  const auto why = !node.xml              ? whyNotWritten(real, node)
                   : node.members.empty() ? std::string_view()
                                          : std::string_view("a value");
  if (!why.empty()) return refuse(at, node, why);
  lyd_node* data = nullptr;
  if (lyd_new_term(at.data, schema.module, schema.name, valueOf(schema, node).c_str(), 0, &data) !=
      LY_SUCCESS)
    return refuse(at, node, modules_.notAllowed());
  note(at, data, node);
}

/// Remembers what a node was made of, and where it is.
void Validation::note(const Place& at, lyd_node* data, const Node& node) {
  data->priv = const_cast<Node*>(&node);
  const bool inState = at.data && (at.data->schema->flags & LYS_CONFIG_R);
  if ((data->schema->flags & LYS_CONFIG_R) && !inState) state_.push_back(data);
  if (!at.data) lyd_insert_sibling(tree_, data, &tree_);
}

/// What was made of the node at a path, or of the first one around it.
const Node* Validation::nodeAt(std::string path) const {
  while (!path.empty()) {
    lyd_node* found = nullptr;
    if (lyd_find_path(tree_, path.c_str(), 0, &found) == LY_SUCCESS && found->priv)
      return static_cast<const Node*>(found->priv);
    path.resize(std::min(path.rfind('/'), path.size() - 1));
  }
  return nullptr;
}

/// What stands in quotation marks behind a word.
std::string quotedBehind(std::string_view text, std::string_view word) {
  const size_t begin = text.find(word);
  if (begin == std::string_view::npos) return "";
  // Keys may have such marks in them; what follows has none, or is another place.
  std::string_view rest = text.substr(begin + word.size() + 1);
  rest = rest.substr(0, rest.find("\", "));
  return std::string(rest.substr(0, std::min(rest.rfind('"'), rest.size())));
}

/// It may be there in part, so nothing is missing there.
void Validation::dropState() {
  for (lyd_node* const each : state_) {
    if (each == tree_) tree_ = each->next;
    lyd_free_tree(each);
  }
  state_.clear();
}

void Validation::finish(const Node& root) {
  dropState();
  constexpr uint32_t options = LYD_VALIDATE_PRESENT | LYD_VALIDATE_NO_STATE;
  if (lyd_validate_all(&tree_, modules_.context(), options, nullptr) == LY_SUCCESS) return;
  const ly_err_item* const error = ly_err_last(modules_.context());
  const std::string told = error && error->path ? error->path : "";
  const std::string expected = modules_.notAllowed();
  // It tells a place in the document, or in the module, if something is missing.
  const std::string path = quotedBehind(told, "ata location ");
  const Node* const node = nodeAt(path);
  const std::string shown = printable(path.empty() ? quotedBehind(told, "chema location ") : path);
  report_.mistake((node ? *node : root).at, shown.empty() ? "a document" : shown + " as it is", expected);
}

}  // namespace

std::string whyNoModules(const std::string& dir) {
  std::error_code error;
  return std::filesystem::is_directory(dir, error) ? "" : fmt::format("{} is no folder", printable(dir));
}

void validate(const std::vector<YangRoot>& roots, const YangDirs& dirs, Report& report) {
  if (roots.empty()) return;
  YangModules modules(dirs);
  if (!modules.load(roots, report)) return;
  Validation validation(modules, report);
  const size_t before = report.mistakes().size();
  for (const auto& root : roots) validation.add(root);
  // What was not taken would be missing.
  if (report.mistakes().size() == before) validation.finish(roots.front().node);
}

#else

std::string whyNoModules(const std::string&) {
  return "this velo was built without libyang, which validates documents";
}

void validate(const std::vector<YangRoot>&, const YangDirs&, Report&) {}

#endif

}  // namespace Models
