#include "Target.h"

#include <MemSlab/Slab.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

namespace Fuzz {

void require(bool holds, std::string_view text) {
  if (holds) return;
  std::fprintf(stderr, "FOUND: %.*s\n", static_cast<int>(text.size()), text.data());
  std::abort();
}

std::string memoryPath() {
  constexpr const char* inMemory = "/dev/shm";
  return access(inMemory, W_OK | X_OK) == 0 ? inMemory : std::filesystem::temp_directory_path().string();
}

namespace {

[[noreturn]] void thrown() {
  try {
    std::rethrow_exception(std::current_exception());
  } catch (const std::exception& error) {
    require(false, std::string("thrown: ") + error.what());
  } catch (...) {
  }
  std::abort();
}

}  // namespace

}  // namespace Fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size);

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // What is reused from tests may have expectations.
  GTEST_FLAG_SET(break_on_failure, true);
  std::set_terminate(Fuzz::thrown);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  TestSupport::Dice dice(std::span(octets, size));
  Fuzz::run(dice);
  const std::string left = MemSlab::liveReport();
  Fuzz::require(left.empty(), [&] { return "objects are still alive behind the input:\n" + left; });
  return 0;
}
