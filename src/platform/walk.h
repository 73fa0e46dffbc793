#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// Directories, listed by the system's own calls: one library ends the process when it runs out of
// memory in its directory iterators, where a failure has to be raised and rolled back.

// Takes a directory and gives the names in it, in the system's order, without "." and "..".
// Fails in the library's words.
std::vector<std::string> names(const std::filesystem::path& directory);

// Takes a directory and calls `visit` with the path and the status of everything below it, at
// every depth; the status is that of a link itself, and links are not entered. The paths are the
// directory's text, one separator and the path below it. Fails in the library's words.
void walk(
    const std::filesystem::path& directory,
    const std::function<void(const std::filesystem::path&, std::filesystem::file_status)>& visit);
