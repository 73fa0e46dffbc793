#pragma once

#include <filesystem>

// Takes a directory and the path of its copy. Creates the copy's parent directories, then copies
// everything recursively, following links. Files keep all their permission bits, set-user-ID and
// set-group-ID too; directories keep those to read, write and search less the umask, and always
// give their owner all three. Extended attributes and access lists do not come along. Nothing that
// exists is overwritten.
// Fails in the library's words, also on anything but files and directories.
void copyTree(const std::filesystem::path& from, const std::filesystem::path& to);
