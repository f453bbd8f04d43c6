#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Zeb/Dir.h>
#include <Zeb/TypeModule.h>

namespace Acl {

namespace {

template <class T>
Kelp::Ptr<T> named(const Kelp::String& name) {
  return MemSlab::make<T>(name);
}

// The types that a mount profile may name, and those that make up their contents.
const Zeb::TypeModule module("Acl", {
                                        Zeb::typeEntry(&named<Zeb::Dir>),
                                        Zeb::typeEntry(&named<Config>),
                                        Zeb::typeEntry(&named<Input::Config>),
                                        Zeb::typeEntry(&intfConfigFactory),
                                        Zeb::typeEntry(&named<StatusDp>),
                                        Zeb::typeEntry<AclTypeConfig>(),
                                        Zeb::typeEntry(&named<AclConfig>),
                                        Zeb::typeEntry<AclSubConfig>(),
                                        Zeb::typeEntry<IntfTypeConfig>(),
                                        Zeb::typeEntry<AclIntf>(),
                                        Zeb::typeEntry<AclTypeStatus>(),
                                        Zeb::typeEntry(&named<AclStatus>),
                                        Zeb::typeEntry<Velo::Counter::VeloDpAclCounter>(),
                                        Zeb::typeEntry<Velo::Counter::VeloDpAclCounterColl>(),
                                        Zeb::typeEntry<Velo::Counter::RuleIdSet>(),
                                    });

}  // namespace

Kelp::Ptr<IntfConfig> intfConfigFactory(const Kelp::String& name) { return MemSlab::make<IntfConfig>(name); }

}  // namespace Acl
