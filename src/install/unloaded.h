#pragma once

#include <filesystem>

// Takes the path of a bundle, which need not exist, and returns if no process has one of the files
// open that stand directly in a directory named "MacOS", asking lsof for each.
// Fails with "Load check unavailable", "Plugin is loaded or load check unavailable; save/close
// hosts first", or in the library's words when the bundle cannot be walked.
void unloaded(const std::filesystem::path& bundle);
