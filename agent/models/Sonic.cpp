#include <agent/models/Documents.h>
#include <agent/models/Leaves.h>
#include <agent/models/SonicRule.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

namespace Models {

namespace {

using Acl::AclType;

struct Table {
  DraftList list{};
  std::optional<AclType> type{};
  Acl::AclDirection direction = Acl::AclDirection::in;
  std::vector<std::string> ports{};
  const Node* portsNode = nullptr;
  std::map<uint32_t, std::string> priorities{};  ///< the rules that have them
};

void takeType(Table& table, const Found& found) {
  if (found.text == "L3" || found.text == "l3") {
    table.type = AclType::ip;
  } else if (found.text == "L3V6" || found.text == "l3v6") {
    table.type = AclType::ipv6;
  } else {
    found.refuse("L3 or L3V6: a list looks at one kind of header, and filters what is forwarded");
  }
}

void takeStage(Table& table, const Found& found) {
  if (found.text == "egress" || found.text == "EGRESS") {
    table.direction = Acl::AclDirection::out;
  } else if (found.text != "ingress" && found.text != "INGRESS") {
    found.refuse("ingress or egress");
  }
}

/// An array of names, or one text with commas.
void takePorts(Table& table, const Found& found) {
  table.portsNode = &found.node;
  const auto one = [&](const Node& node, std::string_view name) {
    const Found port{node, found.path, found.report, found.module, name};
    if (checkName(name, port)) table.ports.emplace_back(name);
  };
  if (found.node.kind == Node::Kind::array) {
    for (const Node& port : found.node.members) {
      if (port.kind != Node::Kind::text) return found.refuse("an array of names");
      one(port, port.value);
    }
    return;
  }
  if (found.node.kind != Node::Kind::text) return found.refuse("an array of names, or a text with commas");
  for (std::string_view rest = found.node.value; !rest.empty();) {
    const size_t end = std::min(rest.find(','), rest.size());
    one(found.node, rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

constexpr Row<Table> tableTable[] = {
    {"type", Kind::text, takeType},
    {"TYPE", Kind::text, takeType},
    {"policy_desc", Kind::ignored},
    {"POLICY_DESC", Kind::ignored},
    {"stage", Kind::text, takeStage},
    {"STAGE", Kind::text, takeStage},
    {"ports", Kind::whole, takePorts},
    {"PORTS", Kind::whole, takePorts},
    {"ports@", Kind::whole, takePorts},
    {"services", Kind::refused, nullptr, "packets to services of the switch are not filtered by lists"},
};

/// The tables and rules of a document: each a node with its key behind the name of its table, "NAME" or
/// "TABLE|RULE".
struct Database {
  struct Row {
    std::string key;
    const Node* node;
    std::string path;
  };
  std::vector<Row> tables, rules;
};

/// Both ways of writing: tables of rows, and rows whose keys begin with the table's name.
Database sorted(const Found& document) {
  Database all;
  for (const Node& node : document.node.members) {
    const std::string name = node.fullName();
    const auto path = fmt::format("/{}", printable(name));
    for (const auto& [table, rows] :
         {std::pair("ACL_TABLE", &all.tables), std::pair("ACL_RULE", &all.rules)}) {
      const std::string prefix = fmt::format("{}|", table);
      if (name == table && node.kind != Node::Kind::object) document.below(node, path).refuse("an object");
      if (name == table) {
        for (const Node& row : node.members)
          rows->push_back({row.fullName(), &row, fmt::format("{}/{}", path, printable(row.fullName()))});
      } else if (name.starts_with(prefix)) {
        rows->push_back({name.substr(prefix.size()), &node, path});
      }
    }
    if (!isSonicTable(name)) {
      const bool filters = name.find("ACL") != name.npos || name.starts_with("MIRROR_SESSION");
      const auto found = document.below(node, path);
      if (filters) {
        found.refuse("no such table: lists cannot do what it is for");
      } else {
        document.report.warn(node.at, "leaf-ignored",
                             fmt::format("{} is not kept: no access list is in it", path));
      }
    }
  }
  return all;
}

void bind(const Table& table, const Found& found, Lines& lines) {
  for (const auto& port : table.ports)
    lines.bind({*table.type, table.direction, port}, table.list.name,
               found.below(*table.portsNode, found.path + "/ports"));
}

/// A field may be written in several ways, but in one at a time.
void refuseTwice(const Found& table) {
  std::set<std::string> fields;
  for (const Node& node : table.node.members) {
    std::string field = node.fullName();
    if (field.ends_with('@')) field.pop_back();
    std::transform(field.begin(), field.end(), field.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    if (!fields.insert(field).second)
      table.below(node, fmt::format("{}/{}", table.path, printable(node.fullName()))).twice();
  }
}

using Tables = std::map<std::string, Table, std::less<>>;

Tables tablesOf(const Database& all, const Found& document) {
  Tables tables;
  for (const auto& row : all.tables) {
    const Found found = document.below(*row.node, row.path);
    Table table;
    table.list.name = row.key;
    table.list.where = {row.node->at, row.path};
    table.list.restPasses = true;
    const Found name{*row.node, row.path, found.report, found.module, row.key};
    if (row.key.find('|') != std::string::npos) {
      name.refuse("the name of a table behind ACL_TABLE, and no further key");
    } else {
      checkListName(row.key, name);
    }
    refuseTwice(found);
    readLeaves(found, tableTable, table);
    if (table.type) table.list.type = *table.type;
    if (!row.node->find("type") && !row.node->find("TYPE")) found.miss("its type");
    if (!tables.emplace(row.key, std::move(table)).second) found.twice();
  }
  return tables;
}

/// Gives the tables their rules, in the order of the document.
void readRules(const Database& all, const Found& document, Tables& tables) {
  std::map<std::string_view, bool> seen;
  for (const auto& row : all.rules) {
    const Found found = document.below(*row.node, row.path);
    const size_t bar = row.key.find('|');
    if (bar != std::string::npos && row.key.find('|', bar + 1) != std::string::npos) {
      found.refuse("the names of a table and a rule behind ACL_RULE, and no further key");
      continue;
    }
    const auto table =
        bar == std::string::npos ? tables.end() : tables.find(std::string_view(row.key).substr(0, bar));
    if (table == tables.end()) {
      found.miss("its table in ACL_TABLE, which says of which kind and where it is");
    } else if (!seen.emplace(row.key, true).second) {
      found.twice();
    } else if (table->second.type) {
      auto& [list, type, direction, ports, node, priorities] = table->second;
      auto rule = sonicRule(*type, std::string_view(row.key).substr(bar + 1), priorities, found);
      if (rule) list.rules.push_back(std::move(*rule));
    }
  }
}

/// Rules are tried by falling priority, which is their number until they have that order.
void order(std::vector<DraftRule>& rules) {
  std::stable_sort(rules.begin(), rules.end(),
                   [](const auto& a, const auto& b) { return a.number > b.number; });
  for (auto& rule : rules) rule.number = 0;
}

}  // namespace

bool isSonicTable(std::string_view name) {
  return name == "ACL_TABLE" || name == "ACL_RULE" || name.starts_with("ACL_TABLE|") ||
         name.starts_with("ACL_RULE|");
}

void readSonic(const Found& document, Lines& lines) {
  const Database all = sorted(document);
  Tables tables = tablesOf(all, document);
  readRules(all, document, tables);
  for (auto& [name, table] : tables) {
    if (!table.type) continue;
    order(table.list.rules);
    write(table.list, lines, document.report);
  }
  for (const auto& row : all.tables) {
    const auto& table = tables.at(row.key);
    if (table.type) bind(table, document.below(*row.node, row.path), lines);
  }
}

}  // namespace Models
