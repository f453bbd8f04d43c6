#pragma once

namespace TestSupport {

/// True where the address sanitizer watches: freed memory is not given out again soon, and the sanitizer
/// needs memory and descriptors for itself, so that neither can be limited.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool addressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool addressSanitizer = true;
#else
inline constexpr bool addressSanitizer = false;
#endif
#else
inline constexpr bool addressSanitizer = false;
#endif

/// True where the thread sanitizer watches.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool threadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
inline constexpr bool threadSanitizer = true;
#else
inline constexpr bool threadSanitizer = false;
#endif
#else
inline constexpr bool threadSanitizer = false;
#endif

/// Everything takes about ten times as long, so tests of many random cases make do with fewer.
inline constexpr bool sanitizers = addressSanitizer || threadSanitizer;

/// How many random cases a test has that otherwise has `count` of them.
constexpr int casesOf(int count) { return sanitizers ? count / 5 : count; }

}  // namespace TestSupport
