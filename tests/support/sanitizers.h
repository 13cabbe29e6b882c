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

// The thread sanitizer does not see what a thread unlocks that is cancelled in a semaphore's wait.
#ifdef __SANITIZE_THREAD__
inline constexpr bool kCancelledUnlocksAreMissed = true;
#else
inline constexpr bool kCancelledUnlocksAreMissed = false;
#endif

}  // namespace test

#endif
