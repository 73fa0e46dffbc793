#pragma once

#include <filesystem>
#include <vector>

#include "package/manifest.h"

// Takes what to rename and to what, whose parent directories it creates.
// Fails in the library's words.
void moveto(const std::filesystem::path& from, const std::filesystem::path& to);

// A rename, and what has to be read back of a bundle behind it; empty when nothing has.
struct Move {
    std::filesystem::path from;
    std::filesystem::path to;
    Manifest proof;
};

// Takes a list of renames and carries it out. Before the first it makes sure that each place is
// free, or will be by then, and on the same file system.
// Fails with "New destination appeared", "Installed readback mismatch", like `stands` and `tree`,
// or in the library's words.
void moveall(const std::vector<Move>& moves);
