#pragma once

#include <filesystem>

// Takes a path, which need not exist, and returns if no part of it is a symbolic link. The walk is
// lexical, from the last component up to the root or to the first component of a relative path.
// Fails with "Symlink path refused: " and the deepest part that is a link, or in the library's
// words when a status cannot be taken.
void safe(const std::filesystem::path& path);

// Takes a path and gives whether something stands there. Fails like `safe`, or in the library's
// words when the status cannot be taken.
bool stands(const std::filesystem::path& path);
