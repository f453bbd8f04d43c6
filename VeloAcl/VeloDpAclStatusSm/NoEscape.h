#pragma once

#include <Kelp/Assert.h>
#include <fmt/format.h>

#include <exception>
#include <string_view>

namespace Velo::VeloAcl {

/// Runs what somebody outside has set off, a task or whoever wrote what is followed. Whoever that is, it is
/// not there for what fails here: whatever is thrown ends the process, with the name of who let it out.
template <class Run>
void runWithoutEscape(std::string_view who, const Run& run) {
  const auto end = [who](std::string_view what) {
    Kelp::fatal(fmt::format("an exception escaped {}: {}", who, what), __FILE__, __LINE__);
  };
  try {
    run();
  } catch (const std::exception& error) {
    end(error.what());
  } catch (...) {
    end("of unknown type");
  }
}

}  // namespace Velo::VeloAcl
