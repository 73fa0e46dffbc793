// A library that is loaded before the C library. These environment variables control it; calls and
// requests for memory are counted from 1:
//   FAIL_CALL    number of the call that fails
//   FAIL_WITH    errno of that failure; EIO if not set
//   KILL_CALL    number of the call at which the program is killed
//   LIST_CALLS   prints each call on standard error, with the number of earlier requests for memory
//   FAIL_MALLOC  number of the request for memory that fails; standard error says so
//   SHORT_READS  the most bytes that a read gives
//   STILL_CLOCK  stops the clock

// NOLINTBEGIN: these are the C library's own functions, by its own names.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

extern "C" void* __libc_malloc(std::size_t size);

static long calls, requests;

static long number(const char* variable) {
    const char* const value = std::getenv(variable);
    return value == nullptr ? 0 : std::atol(value);
}

static const long failing = number("FAIL_CALL");
static const long error = number("FAIL_WITH");
static const long killing = number("KILL_CALL");
static const long listing = number("LIST_CALLS");
static const long starving = number("FAIL_MALLOC");
static const long shortest = number("SHORT_READS");
static const long still = number("STILL_CLOCK");
static const int alone = unsetenv("LD_PRELOAD");  // children run without it

static bool fails(const char* name) {
    ++calls;
    const long before = requests;
    if (listing != 0) dprintf(2, "%s %ld\n", name, before);
    requests = before;  // printing requests memory, too
    if (calls == killing) raise(SIGKILL);
    if (calls == failing) errno = error == 0 ? EIO : static_cast<int>(error);
    return calls == failing;
}

extern "C" void* malloc(std::size_t size) {
    if (++requests != starving) return __libc_malloc(size);
    syscall(SYS_write, 2, "refused\n", 8);
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
CALL(int, -1, fchmodat, (int at, const char* path, mode_t mode, int flags), at, path, mode, flags)
CALL(ssize_t, -1, sendfile, (int to, int from, off_t* at, size_t size), to, from, at, size)
CALL(ssize_t, -1, copy_file_range,
     (int from, off64_t* at, int to, off64_t* behind, size_t size, unsigned flags), from, at, to,
     behind, size, flags)
CALL(ssize_t, -1, write, (int file, const void* bytes, size_t size), file, bytes, size)
CALL(ssize_t, -1, read, (int file, void* bytes, size_t size), file, bytes,
     shortest == 0 ? size : shortest)
CALL(dirent*, nullptr, readdir, (DIR * stream), stream)
CALL(int, -1, close, (int file), file)
CALL(int, -1, pipe, (int* ends), ends)
CALL(int, -1, fstatat, (int at, const char* path, struct stat* status, int flags), at, path, status,
     flags)
CALL(int, errno, posix_spawn,
     (pid_t * child, const char* path, const posix_spawn_file_actions_t* actions,
      const posix_spawnattr_t* attributes, char* const* argv, char* const* environment),
     child, path, actions, attributes, argv, environment)
CALL(pid_t, -1, waitpid, (pid_t child, int* status, int flags), child, status, flags)

// The mode of a new file is the one argument that may be missing.
#define OPEN(name, parameters, ...)                                              \
    extern "C" int name parameters {                                             \
        va_list more;                                                            \
        va_start(more, flags);                                                   \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;   \
        va_end(more);                                                            \
        if (fails((flags & O_CREAT) != 0 ? #name " creates" : #name)) return -1; \
        return following<int parameters>(#name)(__VA_ARGS__, mode);              \
    }
OPEN(open, (const char* path, int flags, ...), path, flags)
OPEN(openat, (int at, const char* path, int flags, ...), at, path, flags)

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (still == 0) return following<int(clockid_t, timespec*)>("clock_gettime")(clock, now);
    *now = {5, 0};
    return 0;
}
// NOLINTEND
