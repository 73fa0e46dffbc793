// Loaded ahead of the C library. Its variables give the number of a call, counted from 1:
// FAIL_CALL fails, KILL_CALL ends the program, and the request for memory FAIL_MALLOC is refused.
// With LIST_CALLS every call is named on standard error, with the number of requests until then.
// With STILL_CLOCK the clock stands still.

// NOLINTBEGIN: these are the C library's own functions, by its own names.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

extern "C" void* __libc_malloc(std::size_t size);

static long failing, killing, starving, listing, still, calls, requests;

static long number(const char* variable) {
    const char* const value = std::getenv(variable);
    return value == nullptr ? 0 : std::atol(value);
}

__attribute__((constructor)) static void start() {
    failing = number("FAIL_CALL");
    killing = number("KILL_CALL");
    starving = number("FAIL_MALLOC");
    listing = number("LIST_CALLS");
    still = number("STILL_CLOCK");
    calls = requests = 0;
    unsetenv("LD_PRELOAD");  // not for the children
}

static bool fails(const char* name) {
    ++calls;
    if (listing != 0) dprintf(2, "%s %ld\n", name, requests);
    if (calls == killing) raise(SIGKILL);
    if (calls == failing) errno = EIO;
    return calls == failing;
}

extern "C" void* malloc(std::size_t size) {
    if (++requests != starving) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

template <typename Function>
static Function* following(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#define CALL(result, failure, name, parameters, ...)                   \
    extern "C" result name parameters {                                \
        static auto* const next = following<result parameters>(#name); \
        return fails(#name) ? failure : next(__VA_ARGS__);             \
    }
CALL(int, -1, mkdir, (const char* path, mode_t mode), path, mode)
CALL(int, -1, rename, (const char* from, const char* to), from, to)
CALL(int, -1, fchmod, (int file, mode_t mode), file, mode)
CALL(int, -1, fchmodat, (int at, const char* path, mode_t mode, int flags), at, path, mode, flags)
CALL(ssize_t, -1, sendfile, (int to, int from, off_t* at, size_t size), to, from, at, size)
CALL(ssize_t, -1, copy_file_range,
     (int from, off64_t* at, int to, off64_t* behind, size_t size, unsigned flags), from, at, to,
     behind, size, flags)
CALL(ssize_t, -1, write, (int file, const void* bytes, size_t size), file, bytes, size)
CALL(ssize_t, -1, read, (int file, void* bytes, size_t size), file, bytes, size)
CALL(dirent*, nullptr, readdir, (DIR * stream), stream)
CALL(int, -1, close, (int file), file)
CALL(int, -1, pipe, (int* ends), ends)

// A mode follows only where a file may be created.
#define OPEN(name, flags)                                   \
    va_list more;                                           \
    va_start(more, flags);                                  \
    const bool creates = ((flags)&O_CREAT) != 0;            \
    const mode_t mode = creates ? va_arg(more, mode_t) : 0; \
    va_end(more);                                           \
    if (fails(creates ? name " creates" : name)) return -1;
extern "C" int open(const char* path, int flags, ...) {
    OPEN("open", flags)
    return following<int(const char*, int, ...)>("open")(path, flags, mode);
}
extern "C" int openat(int at, const char* path, int flags, ...) {
    OPEN("openat", flags)
    return following<int(int, const char*, int, ...)>("openat")(at, path, flags, mode);
}

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (still == 0) return following<int(clockid_t, timespec*)>("clock_gettime")(clock, now);
    *now = {5, 0};
    return 0;
}
// NOLINTEND
