#include "platform/child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "platform/file.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every system declares it

// Gives one end of a pipe a number above the three standard descriptors, which may be closed and
// are the child's, and lets it close when a program is started. Gives -1 when that fails, also when
// the end's old number cannot be closed: the other end would never be at its end.
static int lift(int end) {
    const int lifted = ::fcntl(end, F_DUPFD_CLOEXEC, 3);
    return closefile(end) ? lifted : -1;
}

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
        posix_spawn_file_actions_adddup2(&actions, in, 2) == 0 &&
        posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK) == 0 &&
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
    std::array<int, 2> ends;
    if (::pipe(ends.data()) != 0) return end;
    const int out = lift(ends[0]);
    const int in = lift(ends[1]);
    // Were it still ignored from outside, the child's status would be gone before it is asked for.
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
    pid_t child = -1;
    end.started = out >= 0 && in >= 0 && start(program, argv.data(), in, child);
    const bool closed = closefile(in);

    // Drained before the wait, so that the child can always end.
    std::array<char, 4096> block;
    long got = closed ? 0 : -1;
    while (end.started && closed && (got = readblock(out, block.data(), block.size())) > 0)
        end.errorbytes += static_cast<std::size_t>(got);
    closefile(out);
    int status = 0;
    if (end.started && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && got == 0)
        end.status = WEXITSTATUS(status);
    return end;
}
