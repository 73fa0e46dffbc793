#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

// For each option with a value, what is done with the value; for each without, the flag it sets.
using Valued = std::map<std::string, std::function<void(const char*)>>;
using Flags = std::map<std::string, bool*>;

// Takes main's two arguments and the options of a program, and works through the arguments from
// left to right. Fails with "Unknown option: " and the argument, or like what takes a value.
void takeOptions(int argc, char** argv, const Valued& valued, const Flags& flags);

// Takes a path from the command line and gives its absolute form; the empty path stands for the
// working directory. Fails in the library's words when that directory cannot be determined.
std::filesystem::path absoluteForm(const std::filesystem::path& path);

// The command line of a run.
struct RunOptions {
    std::filesystem::path package;   // the package directory, absolute
    std::filesystem::path testRoot;  // absolute; empty when the option was not given
    bool remove = false;             // remove the package's bundles instead of installing them
    bool dryRun = false;             // stop after verification
};

// Takes main's two arguments and gives the options in them.
// Fails like `takeOptions`, with "Package directory required", or in the library's words when a
// relative value meets a working directory that cannot be determined.
RunOptions readOptions(int argc, char** argv);
