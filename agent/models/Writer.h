#pragma once

#include <agent/config/Model.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Models {

/// What a configuration is written as.
enum class Format { text, ietf, openConfig, sonic };

/// The format of a name; nothing for any other text.
std::optional<Format> formatOf(std::string_view name);
/// All names, for help texts: "text|ietf|...".
std::string formatNames();

/// A configuration as a document. Nothing that filters is lost: what the model cannot say is refused, a
/// sentence each with the list and the rule. With `lossy` it is left out, a sentence each, unless something
/// would pass then that is dropped now.
struct Written {
  std::string document;  ///< empty when something is refused
  std::vector<std::string> refused;
  std::vector<std::string> leftOut;
};

/// Writes all lists and bindings. docs/models.md has what each model can say.
Written write(const Config::Model& model, Format format, bool lossy);

}  // namespace Models
