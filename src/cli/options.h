#pragma once

#include <filesystem>

// The command line of a run.
struct RunOptions {
    std::filesystem::path package;   // the package directory, absolute
    std::filesystem::path testRoot;  // absolute; empty when the option was not given
    bool remove = false;             // remove the package's bundles instead of installing them
    bool dryRun = false;             // stop after verification
};

// Takes main's two arguments and gives the options in them.
// Fails with "Unknown option: " and the argument, with "Package directory required", or in the
// library's words when a relative value meets a working directory that cannot be determined.
RunOptions scan(int argc, char** argv);
