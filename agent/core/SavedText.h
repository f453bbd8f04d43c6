#pragma once

#include <optional>
#include <string>

namespace Agent {

/// Writes a text to a file: whole, or not at all, whatever happens meanwhile. What the file said before is in
/// a file of its name with "~" behind it then. The file keeps its mode and, as far as that is allowed, its
/// owner; a link stays a link. Returns what went wrong; then the file is as it was.
std::optional<std::string> saveText(const std::string& path, const std::string& text);

}  // namespace Agent
