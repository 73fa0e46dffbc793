#include "platform/child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "platform/again.h"
#include "platform/file.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every system declares it

// Moves a pipe end above the standard descriptors, which the child needs, and marks it
// close-on-exec. Gives -1 on failure, also if the old number cannot be closed: the reader would
// never see the end.
static int lift(int descriptor) {
    const int lifted = again([&] { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 3); });
    return closeFile(descriptor) ? lifted : -1;
}

// Starts the program with its standard error to the pipe. Gives whether it was started.
static bool start(const char* program, char** argv, int writing, pid_t& child) {
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
        posix_spawn_file_actions_adddup2(&actions, writing, 2) == 0 &&
        posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK) == 0 &&
        again([&] {
            errno = posix_spawn(&child, program, &actions, &attributes, argv, environ);
            return errno == 0 ? 0 : -1;
        }) == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return started;
}

ChildEnd runChild(const char* program, const std::vector<std::string>& arguments) {
    std::vector<char*> argv = {const_cast<char*>(program)};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    ChildEnd result;
    std::array<int, 2> ends;
    if (again([&] { return ::pipe(ends.data()); }) != 0) return result;
    const int reading = lift(ends[0]);
    const int writing = lift(ends[1]);
    // SIGCHLD may be ignored from outside; the child's status would then be lost before waitpid.
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
    pid_t child = -1;
    result.started = reading >= 0 && writing >= 0 && start(program, argv.data(), writing, child);
    const bool closed = closeFile(writing);

    // Read to the end before the wait: a full pipe would keep the child from ending.
    const auto count = [&](std::string_view block) {
        result.errorBytes += block.size();
        return true;
    };
    const bool complete = result.started && closed && readBlocks(reading, count);
    closeFile(reading);
    if (!result.started) return result;
    int status = 0;
    const pid_t waited = again([&] { return ::waitpid(child, &status, 0); });
    if (waited == child && WIFEXITED(status) && complete) result.status = WEXITSTATUS(status);
    return result;
}
