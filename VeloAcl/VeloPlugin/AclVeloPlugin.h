#pragma once

#include <Plugin/Loader.h>
#include <VeloAcl/VeloPlugin/AclPlugin.h>

namespace Velo::VeloAcl {

/// The one instance of the library. It is registered with the agent's loader as long as the library is open,
/// and makes the plugin when the agent calls init().
class VeloAclPluginInst : public Plugin::PluginBase<PluginContext> {
 public:
  VeloAclPluginInst();
  ~VeloAclPluginInst() override;

  /// Makes an AclPlugin named "Acl", in place of an earlier one, and hands it to the framework.
  void init(PluginContext* context) override;

  void letGo() override { plugin_ = nullptr; }

  /// Null before init.
  const Kelp::Ptr<AclPlugin>& plugin() const { return plugin_; }

 private:
  Kelp::Ptr<AclPlugin> plugin_;
};

}  // namespace Velo::VeloAcl
