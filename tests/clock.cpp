#include <ctime>

// Preloaded, it is the clock: one that stands still, so that two runs meet in one instant.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int clock_gettime(clockid_t /*clock*/, timespec* now) noexcept {
    *now = {5, 0};
    return 0;
}
