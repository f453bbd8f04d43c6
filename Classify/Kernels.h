#pragma once

#include <Classify/Form.h>

/// The kernels by name, see Find.h; which of them are there depends on the processor that the build is for.
namespace Classify {

uint32_t findPortable(const View& view, uint64_t upper, uint64_t lower, uint32_t quad,
                      const Questions& questions, const void* context);
uint32_t findLongPortable(const View& view, const uint8_t* addresses, uint64_t lower, uint32_t quad,
                          const Questions& questions, const void* context);
void projectPortable(const Projection& projection, const uint8_t* addresses, uint32_t (&words)[3]);

uint32_t findAvx2(const View& view, uint64_t upper, uint64_t lower, uint32_t quad, const Questions& questions,
                  const void* context);
uint32_t findLongAvx2(const View& view, const uint8_t* addresses, uint64_t lower, uint32_t quad,
                      const Questions& questions, const void* context);
void projectAvx2(const Projection& projection, const uint8_t* addresses, uint32_t (&words)[3]);

uint32_t findAvx512(const View& view, uint64_t upper, uint64_t lower, uint32_t quad,
                    const Questions& questions, const void* context);
uint32_t findLongAvx512(const View& view, const uint8_t* addresses, uint64_t lower, uint32_t quad,
                        const Questions& questions, const void* context);
void projectAvx512(const Projection& projection, const uint8_t* addresses, uint32_t (&words)[3]);

}  // namespace Classify
