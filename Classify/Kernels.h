#pragma once

#include <Classify/Find.h>

/// The kernels of each unit. Which of them are there depends on the processor that the build is for.
namespace Classify {

extern const Kernels portableKernels, avx2Kernels, avx512Kernels;

}  // namespace Classify
