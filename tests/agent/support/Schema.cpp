#include "Schema.h"

#include <agent/show/Shows.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

namespace TestSupport {

namespace {

using Json = nlohmann::ordered_json;

std::map<std::string, Json> readSchemas() {
  std::map<std::string, Json> all;
  for (const auto& entry : std::filesystem::directory_iterator(VELO_SOURCE_DIR "/docs/schema")) {
    std::ifstream file(entry.path());
    all[entry.path().filename().string()] = Json::parse(file);
  }
  return all;
}
/// Read at once: there are tests in which no file can be opened.
const std::map<std::string, Json> allSchemas = readSchemas();

/// Null when there is no such file.
const Json& schemaFile(const std::string& name) {
  static const Json none;
  const auto at = allSchemas.find(name);
  return at == allSchemas.end() ? none : at->second;
}

bool isOfType(const Json& value, const std::string& type) {
  if (type == "integer") return value.is_number_integer();
  if (type == "number") return value.is_number();
  return type == value.type_name();
}

/// The keywords of JSON Schema (2020-12) that docs/schema uses.
class Validator {
 public:
  explicit Validator(std::string file) : file_(std::move(file)) {}

  std::string whyNot(const Json& schema, const Json& value, const std::string& place) {
    for (const auto& [keyword, rule] : schema.items()) {
      std::string wrong = byKeyword(keyword, rule, value, place);
      if (!wrong.empty()) return wrong;
    }
    const bool isOpen = schema.contains("anyOf") || schema.contains("$ref");
    return value.is_object() && !isOpen ? ofMembers(schema, value, place) : "";
  }

 private:
  std::string byKeyword(const std::string& keyword, const Json& rule, const Json& value,
                        const std::string& place) {
    if (keyword.starts_with("$") && keyword != "$ref") return "";
    if (keyword == "title" || keyword == "description") return "";
    // Of members, which are looked at together.
    if (keyword == "properties" || keyword == "additionalProperties") return "";
    if (keyword == "$ref") return byReference(rule.get<std::string>(), value, place);
    if (keyword == "type") return ofType(rule, value, place);
    if (keyword == "enum")
      return std::find(rule.begin(), rule.end(), value) != rule.end() ? ""
                                                                      : place + ": none of " + rule.dump();
    if (keyword == "required") return withRequired(rule, value, place);
    if (keyword == "items") return value.is_array() ? ofItems(rule, value, place) : "";
    if (keyword == "anyOf") return ofAny(rule, value, place);
    return fmt::format("the keyword {} is not known here", keyword);
  }

  std::string byReference(const std::string& reference, const Json& value, const std::string& place) {
    const size_t hash = reference.find('#');
    Validator there(hash == 0 ? file_ : reference.substr(0, hash));
    const Json& file = schemaFile(there.file_);
    if (file.is_null()) return fmt::format("there is no docs/schema/{}", there.file_);
    return there.whyNot(file.at(Json::json_pointer(hash == reference.npos ? "" : reference.substr(hash + 1))),
                        value, place);
  }

  static std::string ofType(const Json& rule, const Json& value, const std::string& place) {
    const Json types = rule.is_array() ? rule : Json::array({rule});
    const auto fits = [&](const Json& type) { return isOfType(value, type.get<std::string>()); };
    if (std::any_of(types.begin(), types.end(), fits)) return "";
    return fmt::format("{}: {} is no {}", place, value.dump(), rule.dump());
  }

  std::string ofMembers(const Json& schema, const Json& value, const std::string& place) {
    static const Json none = Json::object();
    const auto at = schema.find("properties");
    const Json& members = at == schema.end() ? none : *at;
    for (const auto& [name, member] : value.items()) {
      const std::string inside = fmt::format("{}/{}", place, name);
      const auto known = members.find(name);
      const auto others = schema.find("additionalProperties");
      if (known == members.end() && others == schema.end()) return inside + ": is not in the schema";
      std::string wrong = whyNot(known != members.end() ? *known : *others, member, inside);
      if (!wrong.empty()) return wrong;
    }
    return "";
  }

  static std::string withRequired(const Json& names, const Json& value, const std::string& place) {
    if (!value.is_object()) return "";
    for (const Json& name : names) {
      if (!value.contains(name.get<std::string>())) return fmt::format("{}: has no {}", place, name.dump());
    }
    return "";
  }

  std::string ofItems(const Json& schema, const Json& value, const std::string& place) {
    for (size_t i = 0; i < value.size(); ++i) {
      std::string wrong = whyNot(schema, value[i], fmt::format("{}/{}", place, i));
      if (!wrong.empty()) return wrong;
    }
    return "";
  }

  std::string ofAny(const Json& schemas, const Json& value, const std::string& place) {
    std::string all;
    for (const Json& schema : schemas) {
      const std::string wrong = whyNot(schema, value, place);
      if (wrong.empty()) return "";
      all += wrong + "; ";
    }
    return all;
  }

  const std::string file_;
};

/// Documents that are the same have one schema.
std::string named(const std::string& kind) {
  static const std::map<std::string, std::string> same = {{"edit", "apply"},
                                                          {"rollback", "apply"},
                                                          {"history", "show-history"},
                                                          {"run", "replay"},
                                                          {"show-log-messages", "log-messages"}};
  const auto at = same.find(kind);
  return at == same.end() ? kind : at->second;
}

}  // namespace

std::string whyNotOf(const std::string& schema, const Json& value) {
  const Json& file = schemaFile(schema);
  return file.is_null() ? fmt::format("there is no docs/schema/{}", schema)
                        : Validator(schema).whyNot(file, value, "");
}

void expectOfSchema(const std::string& kind, const Json& document) {
  if (kind.empty()) return;
  EXPECT_EQ(whyNotOf(kind + ".json", document), "") << document.dump().substr(0, 2000);
}

std::string kindOf(const Json& request) {
  const std::string what = request.value("do", "");
  return named(what == "show" ? "show-" + request.value("what", "") : what);
}

std::string kindOf(const std::vector<std::string>& arguments) {
  const auto contains = [&](const char* word) {
    return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
  };
  if (arguments.empty()) return "";
  // What is written in other models has schemas of its own, unless it is a member of a document.
  if (arguments[0] == "convert" || contains("--format")) return contains("--json") ? "convert" : "";
  if (arguments[0] == "fleet") return arguments.size() > 1 ? named("fleet-" + arguments[1]) : "";
  if (arguments[0] != "show") return named(arguments[0]);
  for (const Agent::Show& show : Agent::shows()) {
    if (contains(show.name.data())) return named(fmt::format("show-{}", show.name));
  }
  return "";
}

}  // namespace TestSupport
