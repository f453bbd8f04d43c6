#pragma once

/// The order in which globals of the plugin's library are constructed. Without it that would depend on the
/// order in which files are linked. Globals without a priority come after these: the log messages and the
/// plugin's instance, which stand in one file. The numbers are for [[gnu::init_priority]], which begins at
/// 101.
namespace Velo::VeloAcl::LoadOrder {

enum Priority {
  debugChannel = 101,
  sharedObjectTypes,
  statusMachineTypes,
  pluginTypes,
};

}  // namespace Velo::VeloAcl::LoadOrder
