#include <agent/models/Documents.h>
#include <agent/models/IetfEntry.h>
#include <agent/models/IetfNames.h>
#include <agent/models/Leaves.h>

#include <map>
#include <string>

namespace Models {

namespace {

using Acl::AclType;

/// The whole document.
struct Acls {
  Lines& lines;
  std::map<std::string, AclType, std::less<>> types{};  ///< by the name of the list
};

struct AclOfDocument {
  Acls& all;
  DraftList list{};
  bool known = false;  ///< its type is
};

void takeType(AclOfDocument& acl, const Found& found) {
  for (const auto& row : typeNames) {
    if (row.name != found.text) continue;
    acl.list.type = row.type;
    acl.known = true;
    return;
  }
  found.refuse("ipv4-acl-type, ipv6-acl-type or eth-acl-type: a list looks at one kind of header");
}

constexpr Row<AclOfDocument> aclTable[] = {
    {"name", Kind::text,
     [](AclOfDocument& a, const Found& f) {
       if (checkIetfLength(f) && checkListName(f.text, f)) a.list.name = f.text;
     }},
    {"type", Kind::identity, takeType},
    {"aces/ace", Kind::entries,
     [](AclOfDocument& a, const Found& f) {
       if (a.known) readAce(a.list, f);
     },
     "name"},
};

void takeAcl(Acls& all, const Found& found) {
  AclOfDocument acl{all};
  acl.list.where = {found.node.at, found.path};
  if (!found.node.find("type")) found.miss("its type: ipv4-acl-type, ipv6-acl-type or eth-acl-type");
  readLeaves(found, aclTable, acl);
  if (!acl.known || acl.list.name.empty()) return;
  all.types.emplace(acl.list.name, acl.list.type);
  write(acl.list, all.lines, found.report);
}

// Where lists are bound.

struct Attachment {
  Acls& all;
  std::string interface {};
};

struct AttachedSet {
  std::string name{};
};
constexpr Row<AttachedSet> setTable[] = {
    {"name", Kind::text, [](AttachedSet& s, const Found& f) { s.name = f.text; }},
    {"ace-statistics", Kind::ignored},
};

template <Acl::AclDirection direction>
void takeSet(Attachment& attachment, const Found& found) {
  AttachedSet set;
  readLeaves(found, setTable, set);
  const auto known = attachment.all.types.find(set.name);
  if (known == attachment.all.types.end()) return found.refuse("the name of a list that the document has");
  if (!attachment.interface.empty())
    attachment.all.lines.bind({known->second, direction, attachment.interface}, set.name, found);
}

constexpr Row<Attachment> interfaceTable[] = {
    {"interface-id", Kind::text,
     [](Attachment& a, const Found& f) {
       if (checkName(f.text, f)) a.interface = f.text;
     }},
    {"ingress/acl-sets/acl-set", Kind::entries, takeSet<Acl::AclDirection::in>, "name"},
    {"egress/acl-sets/acl-set", Kind::entries, takeSet<Acl::AclDirection::out>, "name"},
};

void takeInterface(Acls& all, const Found& found) {
  Attachment attachment{all};
  readLeaves(found, interfaceTable, attachment);
}

constexpr Row<Acls> aclsTable[] = {
    {"acl", Kind::entries, takeAcl, "name"},
    {"attachment-points/interface", Kind::entries, takeInterface, "interface-id"},
};

}  // namespace

void readIetf(const Found& acls, Lines& lines) {
  Acls all{lines};
  readLeaves(acls, aclsTable, all);
}

}  // namespace Models
