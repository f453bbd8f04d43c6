#pragma once

#include <string_view>

namespace Config {

/// Kinds of text that may be documents of the models.
inline constexpr std::string_view jsonDocument = "JSON", xmlDocument = "XML or HTML";

/// What a file is that was given as a configuration by accident: "JSON", "XML or HTML", "UTF-16 text", "a
/// compressed file", "binary data" and the like. Empty for anything that may be a configuration text, with
/// mistakes or without.
std::string_view notText(std::string_view bytes);

}  // namespace Config
