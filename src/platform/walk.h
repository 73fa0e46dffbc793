#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// Directories, listed by the system's own calls. If memory runs out, one library's directory
// iterators end the process, but the failure must be raised so that the run is rolled back.

// An entry of a directory. A link is not followed: its type is symlink.
struct Entry {
    int directory;                    // the open directory that it is in
    const std::string& name;          // its name there
    const std::string& path;          // the walk's root, one separator and the path below it
    std::filesystem::file_type type;  // regular, directory, symlink, not_found or unknown
};

// Takes a directory and gives the names in it, in the system's order, except "." and "..".
// Fails in the library's words.
std::vector<std::string> names(const std::filesystem::path& directory);

// Takes a directory, and whether it may itself be a link. Calls `visit` for every entry below it,
// at every depth. Opens each further directory through its parent, so a directory that became a
// link meanwhile is not entered. Keeps one descriptor open for each level. Fails like `visit` or in
// the library's words, also on a path of PATH_MAX bytes or more.
void walk(const std::filesystem::path& root, bool linked,
          const std::function<void(const Entry&)>& visit);
