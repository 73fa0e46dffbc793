#pragma once

#include <cstddef>
#include <string>
#include <vector>

// How a child process ended.
struct ChildEnd {
    bool started = false;        // false: no child has run
    int status = -1;             // its exit status; -1: a signal ended it, or its end is not known
    std::size_t errorBytes = 0;  // bytes that it wrote on standard error
};

// Takes the path of a program, used as given, and its arguments. Runs it to its end, however long
// that takes, and gives how it ended. The child inherits what the caller has inherited, with no
// signal blocked; its standard output is discarded and its standard error counted. SIGCHLD has its
// default action from then on.
ChildEnd runChild(const char* program, const std::vector<std::string>& arguments);
