#pragma once

/// In which order the globals of the plugin's library come to be, before those of its files that say nothing:
/// the order in which files are linked is none to rely on. Log messages and the plugin's instance stand in
/// one file, behind all of these. The numbers are for [[gnu::init_priority]], which has 101 as its first.
namespace Velo::VeloAcl::LoadOrder {

enum Priority {
  debugChannel = 101,
  sharedObjectTypes,
  statusMachineTypes,
  pluginTypes,
};

}  // namespace Velo::VeloAcl::LoadOrder
