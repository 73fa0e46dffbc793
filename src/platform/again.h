#pragma once

#include <cerrno>

// Takes a system call that gives -1 when it fails, and makes it again as long as a signal has
// interrupted it: the target's calls can be interrupted even where no handler is installed. Gives
// what the last call gave.
template <typename Call>
auto again(const Call& call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}
