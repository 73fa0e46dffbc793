#pragma once

#include <cerrno>

// Takes a system call that returns -1 on failure, and repeats it while a signal interrupts it.
// Gives the result of the last call. On macOS, calls can be interrupted even if no handler is
// installed.
template <typename Call>
auto again(const Call& call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}
