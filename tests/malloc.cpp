// Loaded ahead of the C library: the call of malloc whose number is in MALLOC_FAILS gets no memory.
// With the number 0 none fails, and the calls are counted on standard error.

#include <cerrno>
#include <cstdio>
#include <cstdlib>

extern "C" void* __libc_malloc(std::size_t size);  // NOLINT: the C library's own

static long fails = 0;
static long calls = 0;

extern "C" void* malloc(std::size_t size) {
    if (++calls != fails) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

__attribute__((constructor)) static void start() {
    fails = std::atol(std::getenv("MALLOC_FAILS"));  // NOLINT: always a number
    unsetenv("LD_PRELOAD");                          // not for the children
}

__attribute__((destructor)) static void end() {
    if (fails == 0) static_cast<void>(std::fprintf(stderr, "%ld\n", calls));
}
