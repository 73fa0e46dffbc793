#pragma once

#include <filesystem>

// Takes the path of a bundle, which need not exist. Runs lsof on each file directly in a directory
// named "MacOS", and returns if no process has one of them open.
// Fails with "Load check unavailable",
// "Plugin is loaded or load check unavailable; save/close hosts first", or in the library's words
// if a directory cannot be read or a status cannot be taken.
void unloaded(const std::filesystem::path& bundle);
