#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

// For each option with a value, the function that takes the value; for each other option, the flag
// that it sets.
using Valued = std::map<std::string, std::function<void(const char*)>>;
using Flags = std::map<std::string, bool*>;

// Takes main's two arguments and the options of a program. Handles the arguments from left to
// right.
// Fails with "Unknown option: " and the argument, or like a function that takes a value.
void takeOptions(int argc, char** argv, const Valued& valued, const Flags& flags);

// Takes a path from the command line and gives its absolute form. The empty path means the working
// directory. Fails in the library's words if the working directory cannot be determined.
std::filesystem::path absoluteForm(const std::filesystem::path& path);

// The command line of the installer.
struct RunOptions {
    std::filesystem::path package;   // the package directory, absolute
    std::filesystem::path testRoot;  // absolute; empty when the option was not given
    bool remove = false;             // remove the package's bundles instead of installing them
    bool dryRun = false;             // stop after verification
};

// Takes main's two arguments and gives the options in them.
// Fails like `takeOptions` and `absoluteForm`, or with "Package directory required".
RunOptions readOptions(int argc, char** argv);
