#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// Directories, listed by the system's own calls: one library ends the process when it runs out of
// memory in its directory iterators, where a failure has to be raised and rolled back.

// What a walk comes across. The type is that of a link itself.
struct Entry {
    int directory;                    // the open directory that holds it
    const std::string& name;          // its name there
    const std::string& path;          // the walk's root, one separator and the path below it
    std::filesystem::file_type type;  // regular, directory, symlink, not_found or unknown
};

// Takes a directory and gives the names in it, in the system's order, without "." and "..".
// Fails in the library's words.
std::vector<std::string> names(const std::filesystem::path& directory);

// Takes a directory, and whether it may itself be a link, and calls `visit` for everything below
// it, at every depth. Each further directory is opened through the one that holds it, so that none
// is entered that has become a link meanwhile. One descriptor is open for each level. Fails in the
// library's words, also on a path of PATH_MAX bytes or more.
void walk(const std::filesystem::path& root, bool linked,
          const std::function<void(const Entry&)>& visit);
