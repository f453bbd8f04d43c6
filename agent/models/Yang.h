#pragma once

#include <agent/models/Report.h>

#include <string>
#include <string_view>
#include <vector>

namespace Models {

/// Folders with YANG modules by which documents are validated; none: documents are not validated.
using YangDirs = std::vector<std::string>;

/// Why documents cannot be validated by the modules in a folder: there is no such folder, or this program was
/// built without libyang. Empty: they can.
std::string whyNoModules(const std::string& dir);

/// A member of the root of a document, and the module that defines it.
struct YangRoot {
  const Node& node;
  std::string_view module;
};

/// Keeps a mistake for each part of a document that its modules do not allow. All features of the modules
/// are taken for supported. What a document refers to in a module that it has nothing of, as the interfaces
/// of an access list, is taken to be there.
void validate(const std::vector<YangRoot>& roots, const YangDirs& dirs, Report& report);

}  // namespace Models
