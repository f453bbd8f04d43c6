#pragma once

#include <agent/models/Yang.h>
#include <libyang/libyang.h>

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Models {

/// YANG modules as libyang has them, of folders. Only where the program is built with that.
class YangModules {
 public:
  /// The folders outlive it.
  explicit YangModules(const YangDirs& dirs);

  /// Loads the modules that the members of a document's root name. False when one of them is not there or has
  /// mistakes, which the report keeps.
  bool load(const std::vector<YangRoot>& roots, Report& report);

  const ly_ctx* context() const { return context_.get(); }
  /// A module that was loaded; null: there is none.
  const lys_module* find(std::string_view name) const {
    return ly_ctx_get_module_implemented(context(), std::string(name).c_str());
  }
  /// What is said to be expected, with the last error of the library.
  std::string notAllowed() const;

 private:
  struct FreeContext {
    void operator()(ly_ctx* context) const { ly_ctx_destroy(context); }
  };

  static LY_ERR letGo(lysc_node* node, void* self, ly_bool* skip);

  const YangDirs& dirs_;
  std::unique_ptr<ly_ctx, FreeContext> context_;
  std::set<std::string> roots_;  // the modules of them
};

}  // namespace Models
