#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace TestSupport {

/// What is wrong with a value by a schema of docs/schema, with its place; empty if nothing is. The schemas
/// are for readers, who are to pass over members that they do not know. The program is held to them more
/// strictly: it has no member that is not written down.
std::string whyNotOf(const std::string& schema, const nlohmann::ordered_json& value);

/// Fails the test when a document is not of its schema, docs/schema/KIND.json; an object with `error` passes.
void expectOfSchema(const std::string& kind, const nlohmann::ordered_json& document);
/// What an answer to a request, or to a command line, is called there; empty: it is no document.
std::string kindOf(const nlohmann::ordered_json& request);
std::string kindOf(const std::vector<std::string>& arguments);

}  // namespace TestSupport
