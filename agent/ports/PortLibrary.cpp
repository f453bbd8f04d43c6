#include <agent/ports/PortLibrary.h>
#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <system_error>

namespace Agent {

namespace {

std::string besideTheProgram(std::string_view library) {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / library).string();
}

}  // namespace

std::unique_ptr<PortDevice> deviceOfLibrary(std::string_view library, const PortWhat& what,
                                            const PortSetup& setup, std::string& wrong) {
  const std::string path = besideTheProgram(library);
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    wrong = fmt::format("this kind of port is not installed: there is no {}", path);
    return nullptr;
  }
  // It stays open: its threads and its memory are the process's own from now on.
  void* opened = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!opened) {
    wrong = fmt::format("what this kind of port needs is missing: {}", dlerror());
    return nullptr;
  }
  const auto* interface = static_cast<const char*>(dlsym(opened, portInterfaceSymbol));
  if (!interface || std::string_view(interface) != VELO_PORT_INTERFACE) {
    wrong = fmt::format("{} is of another version of velo", path);
    return nullptr;
  }
  const auto make = reinterpret_cast<MakePort>(dlsym(opened, makePortSymbol));
  return make(what, setup, wrong);
}

}  // namespace Agent
