// Which sanitizer the tests run under, for the few that leave something out there.
#pragma once

#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
constexpr bool kThreadSanitizer = __has_feature(thread_sanitizer);
#else
constexpr bool kThreadSanitizer = false;
#endif

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
constexpr bool kAddressSanitizer = __has_feature(address_sanitizer);
#else
constexpr bool kAddressSanitizer = false;
#endif
