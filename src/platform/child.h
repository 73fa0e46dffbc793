#pragma once

#include <cstddef>
#include <string>
#include <vector>

// How a child process ended.
struct ChildEnd {
    bool started = false;        // false: no child has run
    int status = -1;             // its exit status; -1: a signal ended it, or its end is unknown
    std::size_t errorBytes = 0;  // number of bytes that it wrote to standard error
};

// Takes the path of a program, which is not searched for in PATH, and its arguments. Runs it to its
// end, without a time limit, and gives how it ended. The child starts with no signal blocked and
// with the inherited descriptors, except that its standard output is discarded and its standard
// error counted. From then on SIGCHLD has its default action.
ChildEnd runChild(const char* program, const std::vector<std::string>& arguments);
