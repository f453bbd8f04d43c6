#pragma once

#include <string_view>

namespace Config {

/// Kinds of text that may be documents of the models.
inline constexpr std::string_view jsonDocument = "JSON", xmlDocument = "XML or HTML";

/// What a file is that was given as a configuration by accident. Empty for anything that may be a
/// configuration text, with mistakes or without. Some of the answers:
///   "JSON"
///   "UTF-16 text"
///   "a compressed file"
std::string_view notText(std::string_view bytes);

}  // namespace Config
