#ifdef VELO_HAS_YANG
#include <agent/models/YangModules.h>
#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <new>

namespace Models {

namespace {

/// The names of all modules in folders, which libyang searches with all that is below them, too.
std::set<std::string> modulesIn(const YangDirs& dirs) {
  std::set<std::string> names;
  for (const auto& dir : dirs) {
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator file(dir, error), end; !error && file != end;
         file.increment(error)) {
      // NAME.yang, or NAME@REVISION.yang.
      const std::string name = file->path().stem().string();
      if (file->path().extension() == ".yang") names.insert(name.substr(0, name.find('@')));
    }
  }
  return names;
}

/// What `name` of a module or `module:name` of an identity says of modules.
void addModules(const Node& node, std::set<std::string>& names) {
  for (const auto* name : {&node.module, &node.valueModule}) {
    if (!name->empty()) names.insert(*name);
  }
  for (const Node& member : node.members) addModules(member, names);
}

}  // namespace

YangModules::YangModules(const YangDirs& dirs) : dirs_(dirs) {
  // Nothing of it goes to standard error; each context keeps its own.
  ly_log_options(LY_LOSTORE);
  ly_ctx* context = nullptr;
  constexpr uint16_t options =
      LY_CTX_NO_YANGLIBRARY | LY_CTX_DISABLE_SEARCHDIR_CWD | LY_CTX_ENABLE_IMP_FEATURES;
  if (ly_ctx_new(nullptr, options, &context) != LY_SUCCESS) throw std::bad_alloc();
  context_.reset(context);
  for (const auto& dir : dirs_) ly_ctx_set_searchdir(context, dir.c_str());
}

std::string YangModules::notAllowed() const {
  const ly_err_item* const error = ly_err_last(context_.get());
  std::string why = error && error->msg ? printable(error->msg) : "no reason given";
  if (why.ends_with('.')) why.pop_back();
  return "what its module allows: " + why;
}

bool YangModules::load(const std::vector<YangRoot>& roots, Report& report) {
  static const char* all[] = {"*", nullptr};
  std::set<std::string> named;
  for (const auto& root : roots) {
    const std::string module(root.module);
    roots_.insert(module);
    if (!ly_ctx_load_module(context_.get(), module.c_str(), nullptr, all)) {
      // The first error is the reason for those behind it.
      const ly_err_item* const error = ly_err_first(context_.get());
      report.mistake(root.node.at, printableQuote(root.node.name) + " of module " + printableQuote(module),
                     fmt::format("this module in {} (--yang-dir): {}", fmt::join(dirs_, " or "),
                                 printable(error && error->msg ? error->msg : "it is not there")));
      return false;
    }
    addModules(root.node, named);
  }
  const auto there = modulesIn(dirs_);
  for (const auto& module : named) {
    if (there.contains(module)) ly_ctx_load_module(context_.get(), module.c_str(), nullptr, all);
  }
  uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context_.get(), &index)) {
    if (module->implemented) lysc_module_dfs_full(module, letGo, this);
  }
  return true;
}

/// A leaf may refer to what the document has nothing of.
LY_ERR YangModules::letGo(lysc_node* node, void* self, ly_bool*) {
  if (!(node->nodetype & (LYS_LEAF | LYS_LEAFLIST))) return LY_SUCCESS;
  lysc_type* const type = reinterpret_cast<lysc_node_leaf*>(node)->type;
  if (type->basetype != LY_TYPE_LEAFREF) return LY_SUCCESS;
  auto& reference = *reinterpret_cast<lysc_type_leafref*>(type);
  LY_ARRAY_COUNT_TYPE i = 0;
  LY_ARRAY_FOR(reference.prefixes, i) {
    if (!static_cast<YangModules*>(self)->roots_.contains(reference.prefixes[i].mod->name))
      reference.require_instance = 0;
  }
  return LY_SUCCESS;
}

}  // namespace Models
#endif
