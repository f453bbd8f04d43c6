#include <agent/models/Documents.h>
#include <agent/models/Leaves.h>
#include <agent/models/OpenConfigEntry.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace Models {

namespace {

using Acl::AclType;

struct AclTree {
  Lines& lines;
  std::set<std::pair<AclType, std::string>> known{};
};

struct Set {
  AclTree& all;
  DraftList list{};
  std::optional<AclType> type{};
  std::string name{};
};

struct TypeName {
  std::string_view name;
  AclType type;
};
constexpr TypeName types[] = {
    {"ACL_IPV4", AclType::ip}, {"ACL_IPV6", AclType::ipv6}, {"ACL_L2", AclType::mac}};

void takeEntry(Set& set, const Found& found) {
  if (!set.type) return;  // the mistake is that the list has none
  if (auto rule = openConfigEntry(*set.type, found)) set.list.rules.push_back(std::move(*rule));
}

std::optional<AclType> typeOf(const Found& found) {
  for (const auto& row : types) {
    if (row.name == found.text) return row.type;
  }
  found.refuse("ACL_IPV4, ACL_IPV6 or ACL_L2: a list looks at one kind of header");
  return std::nullopt;
}

constexpr Row<Set> setTable[] = {
    {"name", Kind::text,
     [](Set& s, const Found& f) {
       if (checkListName(f.text, f)) s.name = f.text;
     }},
    {"type", Kind::identity, [](Set& s, const Found& f) { s.type = typeOf(f); }},
    {"config/name", Kind::text,
     [](Set& s, const Found& f) {
       s.list.name = f.text;
       if (f.text != s.name) f.refuse("the same as the key");
     }},
    {"config/type", Kind::identity,
     [](Set& s, const Found& f) {
       if (s.type && typeOf(f) != s.type) f.refuse("the same as the key");
     }},
    {"config/description", Kind::ignored},
    {"state", Kind::ignored},
    {"acl-entries/acl-entry", Kind::entries, takeEntry, "sequence-id"},
};

void takeSet(AclTree& all, const Found& found) {
  Set set{all};
  set.list.where = {found.node.at, found.path};
  const Node* config = found.node.find("config");
  if (!config || !config->find("name") || !config->find("type"))
    return found.miss("config/name and config/type");
  readLeaves(found, setTable, set);
  if (!set.type || set.name.empty()) return;
  set.list.type = *set.type;
  std::stable_sort(set.list.rules.begin(), set.list.rules.end(),
                   [](const auto& a, const auto& b) { return a.number < b.number; });
  all.known.emplace(set.list.type, set.list.name);
  write(set.list, all.lines, found.report);
}

// Where lists are bound.

struct Interface {
  AclTree& all;
  std::string id{}, name{};
};
struct Bound {
  std::string name{}, configName{};
  std::optional<AclType> type{}, configType{};
};

constexpr Row<Bound> boundTable[] = {
    {"set-name", Kind::text, [](Bound& b, const Found& f) { b.name = f.text; }},
    {"type", Kind::identity, [](Bound& b, const Found& f) { b.type = typeOf(f); }},
    {"config/set-name", Kind::text, [](Bound& b, const Found& f) { b.configName = f.text; }},
    {"config/type", Kind::identity, [](Bound& b, const Found& f) { b.configType = typeOf(f); }},
    {"state", Kind::ignored},
    {"acl-entries", Kind::ignored},
};

template <Acl::AclDirection direction>
void takeBound(Interface& interface, const Found& found) {
  Bound bound;
  readLeaves(found, boundTable, bound);
  if (!bound.type) return;
  if (bound.configName != bound.name || bound.configType != bound.type)
    return found.miss("config/set-name and config/type, the same as the key");
  if (!interface.all.known.contains({*bound.type, bound.name}))
    return found.refuse("name and type of a list that the document has");
  if (!interface.name.empty())
    interface.all.lines.bind({*bound.type, direction, interface.name}, bound.name, found);
}

constexpr Row<Interface> interfaceTable[] = {
    {"id", Kind::text, [](Interface& i, const Found& f) { i.id = f.text; }},
    {"config/id", Kind::text,
     [](Interface& i, const Found& f) {
       if (f.text != i.id) f.refuse("the same as the key");
     }},
    {"state", Kind::ignored},
    {"interface-ref/config/interface", Kind::text,
     [](Interface& i, const Found& f) {
       if (checkName(f.text, f)) i.name = f.text;
     }},
    number<Interface>("interface-ref/config/subinterface", 0, 0, nullptr),
    {"interface-ref/state", Kind::ignored},
    {"ingress-acl-sets/ingress-acl-set", Kind::entries, takeBound<Acl::AclDirection::in>, "set-name,type"},
    {"egress-acl-sets/egress-acl-set", Kind::entries, takeBound<Acl::AclDirection::out>, "set-name,type"},
};

void takeInterface(AclTree& all, const Found& found) {
  const Node* reference = found.node.find("interface-ref");
  const Node* config = reference ? reference->find("config") : nullptr;
  if (!config || !config->find("interface"))
    return found.miss("interface-ref/config/interface: the id says no interface");
  const Node* own = found.node.find("config");
  if (!own || !own->find("id")) return found.miss("config/id, the same as the key");
  Interface interface { all };
  readLeaves(found, interfaceTable, interface);
}

constexpr Row<AclTree> aclTable[] = {
    {"config", Kind::ignored},
    {"state", Kind::ignored},
    {"acl-sets/acl-set", Kind::entries, takeSet, "name,type"},
    {"interfaces/interface", Kind::entries, takeInterface, "id"},
};

}  // namespace

void readOpenConfig(const Found& acl, Lines& lines) {
  const Node* sets = acl.node.find("acl-sets");
  const Node* set = sets ? sets->find("acl-set") : nullptr;
  if (set && set->kind == Node::Kind::object) {
    return acl.below(*set, acl.path + "/acl-sets/acl-set")
        .refuse(
            "an array: files of rules for tables that SONiC has elsewhere do not say of which kind they are; its ACL_TABLE and ACL_RULE do");
  }
  AclTree all{lines};
  readLeaves(acl, aclTable, all);
}

}  // namespace Models
