#pragma once

#include <filesystem>

// Takes a path, which need not exist, and returns if no part of it is a symbolic link. Only the
// text decides which parts it has: from the whole path up to the root, or up to the first component
// of a relative path. Fails with "Symlink path refused: " and the deepest part that is a link, or
// in the library's words if a status cannot be taken.
void safe(const std::filesystem::path& path);

// Takes a path and gives whether a file or directory is there. Fails like `safe`, or in the
// library's words if the status cannot be taken.
bool stands(const std::filesystem::path& path);
