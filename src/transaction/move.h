#pragma once

#include <filesystem>

// Takes a path and its new path. Creates the parent directories of the new path, and renames.
// Fails in the library's words.
void moveTo(const std::filesystem::path& from, const std::filesystem::path& to);
