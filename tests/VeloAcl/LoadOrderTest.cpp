#include <Plugin/Loader.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TraceHandle.h>
#include <Zeb/TypeModule.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// In which order the globals of the plugin's library come to be. The linker sends the calls of what they
// register with through the functions below (see CMakeLists.txt), which write them down.

namespace {

std::vector<std::string>& journal() {
  static std::vector<std::string>& lines = *new std::vector<std::string>;
  return lines;
}

}  // namespace

#define REAL(symbol) __real_##symbol
#define WRAP(symbol) __wrap_##symbol
#define TRACE_HANDLE(kind) kind(_ZN3Zeb11TraceHandleC1ESt17basic_string_viewIcSt11char_traitsIcEES4_)
#define LOG_HANDLE(kind) kind(_ZN3Zeb9LogHandleC1ERKNS_13LogDescriptorEN4Kelp8DurationEdjj)
#define TYPE_MODULE(kind) \
  kind(_ZN3Zeb10TypeModuleC1ESt17basic_string_viewIcSt11char_traitsIcEESt6vectorINS_9TypeEntryESaIS6_EE)
#define REGISTER_PLUGIN(kind) \
  kind(                       \
      _ZN6Plugin4Impl10LoaderImpl14registerPluginESt17basic_string_viewIcSt11char_traitsIcEES5_S5_S5_S5_PNS1_10InitCallerE)

// Of constructors the first argument is the object; what is given by value and is no plain data comes as a
// pointer.
extern "C" {
using Text = std::string_view;

void TRACE_HANDLE(REAL)(void*, Text, Text);
void TRACE_HANDLE(WRAP)(void* self, Text name, Text source) {
  journal().push_back("trace " + std::string(name));
  TRACE_HANDLE(REAL)(self, name, source);
}

void LOG_HANDLE(REAL)(void*, const Zeb::LogDescriptor&, Kelp::Duration, double, unsigned, unsigned);
void LOG_HANDLE(WRAP)(void* self, const Zeb::LogDescriptor& descriptor, Kelp::Duration interval,
                      double factor, unsigned burst, unsigned limit) {
  journal().push_back("message " + std::string(descriptor.name));
  LOG_HANDLE(REAL)(self, descriptor, interval, factor, burst, limit);
}

void TYPE_MODULE(REAL)(void*, Text, void* entries);
void TYPE_MODULE(WRAP)(void* self, Text unit, void* entries) {
  journal().push_back("types " + std::string(unit));
  TYPE_MODULE(REAL)(self, unit, entries);
}

void REGISTER_PLUGIN(REAL)(void*, Text, Text, Text, Text, Text, void* caller);
void REGISTER_PLUGIN(WRAP)(void* loader, Text name, Text kind, Text shortName, Text options, Text version,
                           void* caller) {
  journal().push_back("plugin " + std::string(name));
  REGISTER_PLUGIN(REAL)(loader, name, kind, shortName, options, version, caller);
}
}

namespace {

TEST(LoadOrder, DebugChannelThenTypesThenMessagesThenTheInstance) {
  const std::vector<std::string> expected{
      "trace DpAclStatusVelo",      "types VeloAclConfigSharedObject",
      "types VeloDpAclStatusSm",    "types AclVeloPlugin",
      "message ACL_IPACCESS",       "message ACL_IPACCESS2",
      "message ACL_IP6ACCESS",      "message ACL_MACACCESS",
      "message ACL_DISCONTIG_MASK", "message ACL_KERNEL_TABLE_MANAGEMENT_FAILURE",
      "plugin VeloAclPlugin",
  };
  ASSERT_GE(journal().size(), expected.size());
  EXPECT_EQ(std::vector(journal().begin(), journal().begin() + static_cast<long>(expected.size())), expected);
}

}  // namespace
