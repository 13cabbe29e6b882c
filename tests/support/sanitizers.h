// What tests have to know of the sanitizer that they are built with.
#ifndef TESTS_SUPPORT_SANITIZERS_H
#define TESTS_SUPPORT_SANITIZERS_H

namespace test {

// The address sanitizer takes the frames of a cancelled thread for live ones, and aborts in those
// that are laid over them later.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kCancelledFramesStay = true;
#else
inline constexpr bool kCancelledFramesStay = false;
#endif

}  // namespace test

#endif
