#pragma once

#include <filesystem>

// Takes a directory and the path of its copy. Creates the copy's parent directories. Copies all
// files and directories recursively, follows links, and overwrites nothing.
// A copied file has all nine permission bits of its original. A copied directory has them too,
// except those in the umask; its owner always has all three. The library and the system decide on
// set-ID bits. Extended attributes and access lists are not copied.
// Fails in the library's words, also on every type except files and directories.
void copyTree(const std::filesystem::path& from, const std::filesystem::path& to);
