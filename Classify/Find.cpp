#include <Classify/Kernels.h>

#include <cstdlib>
#include <string_view>

namespace Classify {

namespace {

const Kernels* best() {
  const char* asked = std::getenv("VELO_CLASSIFY");
  const std::string_view name = asked ? asked : "avx512";
  if (name == "avx512" && kernelsOf(Unit::avx512)) return kernelsOf(Unit::avx512);
  if (name != "portable" && kernelsOf(Unit::avx2)) return kernelsOf(Unit::avx2);
  return &portableKernels;
}

}  // namespace

const Kernels* kernels = best();

const Kernels* kernelsOf(Unit unit) {
  if (unit == Unit::portable) return &portableKernels;
#ifdef VELO_CLASSIFY_X86
  // The processors named here have an instruction that gathers bits, but it is slower than a loop.
  const bool gathers =
      __builtin_cpu_supports("bmi2") && !__builtin_cpu_is("znver1") && !__builtin_cpu_is("znver2");
  if (unit == Unit::avx2 && gathers && __builtin_cpu_supports("avx2")) return &avx2Kernels;
  if (unit == Unit::avx512 && gathers && __builtin_cpu_supports("avx512f") &&
      __builtin_cpu_supports("avx512vl")) {
    return &avx512Kernels;
  }
#endif
  return nullptr;
}

}  // namespace Classify
