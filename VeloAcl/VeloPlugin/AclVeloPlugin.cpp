#include <Blip/FastTrace.h>
#include <VeloAcl/LoadOrder.h>
#include <VeloAcl/VeloPlugin/AclTrace.h>
#include <VeloAcl/VeloPlugin/AclVeloPlugin.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TypeModule.h>

namespace Velo::VeloAcl {

namespace {

// The globals of this file are constructed in the order in which they stand: types (LoadOrder.h), log
// messages, instance.

[[gnu::init_priority(LoadOrder::pluginTypes)]] const Zeb::TypeModule pluginModule(
    "AclVeloPlugin", {
                         Zeb::typeEntry(&aclPluginFactory),
                         Zeb::typeEntry(&dataplaneAclHelperFactory),
                         Zeb::typeEntry(&dataplaneAclInputStepFactory),
                         Zeb::typeEntry(&dataplaneAclOutputStepFactory),
                     });

constexpr char ipAccessFormat[] = "%slist %s%s %s %s";
constexpr char ipAccessExplanation[] =
    "A packet has matched one of the rules with 'log' option in the specified IP access-list.";

const Zeb::LogHandle aclIpAccess({"ACL_IPACCESS", ipAccessFormat, ipAccessExplanation, Zeb::logNoAction, 6},
                                 Kelp::Duration(0), 1.0, 0, 0);
const Zeb::LogHandle aclIpAccess2({"ACL_IPACCESS2", ipAccessFormat, ipAccessExplanation, Zeb::logNoAction, 5},
                                  Kelp::Duration(0), 1.0, 0, 0);
const Zeb::LogHandle aclIp6Access(
    {"ACL_IP6ACCESS", "%slist %s %s %s %s %s -> %s%s",
     "A packet has matched one of the rules with 'log' option in the specified IPv6 access-list.",
     Zeb::logNoAction, 6},
    Kelp::Duration(0), 1.0, 0, 0);
const Zeb::LogHandle aclMacAccess(
    {"ACL_MACACCESS", "%slist %s %s %s %s %s -> %s %s",
     "A packet has matched one of the rules with 'log' option in the specified MAC access-list.",
     Zeb::logNoAction, 6},
    Kelp::Duration(0), 1.0, 0, 0);
const Zeb::LogHandle aclDiscontigMask({"ACL_DISCONTIG_MASK", "ACL with unsupported discontiguous mask (%s)",
                                       "The switch is unable to enforce this rule. It will be ignored.",
                                       "Reconfigure the ACL to use contiguous masks.", 4},
                                      Kelp::Duration(0), 1.0, 0, 0);
const Zeb::LogHandle aclKernelTableManagementFailure(
    {"ACL_KERNEL_TABLE_MANAGEMENT_FAILURE", "%s command failed to manage rules in the kernel",
     "The kernel rejected the rules that the agent desired to manage. This is likely to be a kernel mismatch in cOrbi-lab.",
     "See the Acl agent log for details.", 3},
    Kelp::Duration(1.0), 1.0, 0, 0);

VeloAclPluginInst instance;

}  // namespace

VeloAclPluginInst::VeloAclPluginInst() : PluginBase(DefaultPluginLoader(), "VeloAclPlugin", "Acl") {}
VeloAclPluginInst::~VeloAclPluginInst() = default;

void VeloAclPluginInst::init(PluginContext* context) {
  plugin_ = aclPluginFactory("Acl");
  plugin_->pluginCtxIs(context);
  plugin_->savePluginRef(context->entityManager);

  // The place that both records name belongs to the format of the trace.
  constexpr int line = 381;
  if (Blip::fastTraceOn(aclFastTraceFacility())) {
    Blip::fastTrace("VeloAcl/VeloPlugin/AclVeloPlugin", line, {aclFastTraceFacility()});
  }
  aclTrace().traceAt(line, 0, "init", "{} loaded Acl plugin",
                     "virtual void Velo::VeloAcl::VeloAclPluginInst::init(Velo::PluginContext*)");
}

}  // namespace Velo::VeloAcl
