#include "platform/child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "platform/file.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every system declares it

// Both ends stand above the three standard descriptors, which may be closed and are the child's,
// and are closed when a program is started.
static bool makepipe(int& out, int& in) {
    std::array<int, 2> ends;
    if (::pipe(ends.data()) != 0) return false;
    out = ::fcntl(ends[0], F_DUPFD_CLOEXEC, 3);
    in = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 3);
    // An end that stays open would keep the other from ever being at its end.
    const bool closed = closefile(ends[0]) && closefile(ends[1]);
    if (closed && out >= 0 && in >= 0) return true;
    if (out >= 0) closefile(out);
    if (in >= 0) closefile(in);
    return false;
}

// Leaves the child none of the caller's descriptors but the three standard ones.
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT
static constexpr short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_CLOEXEC_DEFAULT;
static int closeothers(posix_spawn_file_actions_t* actions) {
    return ::fcntl(0, F_GETFD) < 0 ? 0 : posix_spawn_file_actions_addinherit_np(actions, 0);
}
#else
static constexpr short flags = POSIX_SPAWN_SETSIGMASK;
static int closeothers(posix_spawn_file_actions_t* actions) {
    return posix_spawn_file_actions_addclosefrom_np(actions, 3);
}
#endif

// Gives whether the program was started, with standard error going to the pipe.
static bool start(const char* program, char** argv, int in, pid_t& child) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    if (posix_spawn_file_actions_init(&actions) != 0) return false;
    if (posix_spawnattr_init(&attributes) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return false;
    }
    sigset_t none;
    sigemptyset(&none);
    const bool started =
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0) == 0 &&
        posix_spawn_file_actions_adddup2(&actions, in, 2) == 0 && closeothers(&actions) == 0 &&
        posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
        posix_spawnattr_setflags(&attributes, flags) == 0 &&
        posix_spawn(&child, program, &actions, &attributes, argv, environ) == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return started;
}

ChildEnd runchild(const char* program, const std::vector<std::string>& arguments) {
    std::vector<char*> argv = {const_cast<char*>(program)};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    ChildEnd end;
    int out = -1;
    int in = -1;
    if (!makepipe(out, in)) return end;
    // Were it still ignored from outside, the child's status would be gone before it is asked for.
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
    pid_t child = -1;
    end.started = start(program, argv.data(), in, child);
    const bool closed = closefile(in);

    // Drained before the wait, so that the child can always end.
    std::array<char, 4096> block;
    long got = closed ? 0 : -1;
    while (end.started && closed && (got = readblock(out, block.data(), block.size())) > 0)
        end.errorbytes += static_cast<std::size_t>(got);
    closefile(out);
    if (!end.started) return end;

    int status = 0;
    pid_t ended = -1;
    do {
        ended = ::waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    if (got == 0 && ended == child && WIFEXITED(status)) end.status = WEXITSTATUS(status);
    return end;
}
