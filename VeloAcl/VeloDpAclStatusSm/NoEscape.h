#pragma once

#include <Kelp/Assert.h>
#include <fmt/format.h>

#include <exception>
#include <string_view>

namespace Velo::VeloAcl {

/// Runs work that was started from outside: by a task, or by a write to something that is followed. The
/// caller out there cannot deal with a failure in here. So an exception ends the process, with the name of
/// the part that threw it.
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
