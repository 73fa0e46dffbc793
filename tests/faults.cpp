// A library that is loaded before the C library. These environment variables control it; calls and
// requests for memory are counted from 1:
//   FAIL_CALL    number of the call that fails
//   FAIL_WITH    errno of that failure; EIO if not set
//   KILL_CALL    number of the call at which the program is killed
//   LIST_CALLS   prints each call on standard error: name, path, earlier requests for memory
//   FAIL_MALLOC  number of the request for memory that fails; standard error says so
//   STILL_CLOCK  stops the clock

// NOLINTBEGIN: these are the C library's own functions, by its own names.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
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
static const long still = number("STILL_CLOCK");
static const int alone = unsetenv("LD_PRELOAD");  // children run without it

static bool fails(const char* name, const char* path) {
    ++calls;
    const long before = requests;
    if (listing != 0) dprintf(2, "%s %s %ld\n", name, path, before);
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

// Each of these takes at most six words in registers, whatever their types are. The third argument
// is its path, if it has one; the last one is its name in a list.
using Call = long(long, long, long, long, long, long);
#define NAMED_CALL(function, failure, path, name)                                       \
    extern "C" Call faulty_##function asm(#function);                                   \
    long faulty_##function(long a, long b, long c, long d, long e, long f) {            \
        static auto* const next = reinterpret_cast<Call*>(dlsym(RTLD_NEXT, #function)); \
        return fails(name, (const char*)(path)) ? failure : next(a, b, c, d, e, f);     \
    }
#define CALL(function, failure, path) NAMED_CALL(function, failure, path, #function)
NAMED_CALL(open, -1, a, (b & O_CREAT) != 0 ? "open creates" : "open")
NAMED_CALL(openat, -1, b, (c & O_CREAT) != 0 ? "openat creates" : "openat")
CALL(mkdir, -1, a)
CALL(rename, -1, b)
CALL(fchmodat, -1, b)
CALL(fstatat, -1, b)
CALL(posix_spawn, errno, b)
CALL(waitpid, -1, "")
CALL(pipe, -1, "")
CALL(sendfile, -1, "")
CALL(copy_file_range, -1, "")
CALL(write, -1, "")
CALL(read, -1, "")
CALL(readdir, 0, "")
CALL(close, -1, "")

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    static auto* const next =
        reinterpret_cast<decltype(clock_gettime)*>(dlsym(RTLD_NEXT, "clock_gettime"));
    if (still == 0) return next(clock, now);
    *now = {5, 0};
    return 0;
}
// NOLINTEND
