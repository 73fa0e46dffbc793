#pragma once

#include <filesystem>

// Takes a directory and the path of its copy. Creates the copy's parent directories, then copies
// everything recursively, following links. A copied file has all nine permission bits of its
// original, a copied directory has them less the umask and always gives its owner all three. The
// set-ID bits are as the library and the system leave them. Extended attributes and access lists
// are not copied. Nothing that exists is overwritten.
// Fails in the library's words, also on anything but files and directories.
void copyTree(const std::filesystem::path& from, const std::filesystem::path& to);
