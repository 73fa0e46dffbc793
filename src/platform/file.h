#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

// Files by descriptor. The standard streams would not do: one library's takes a read that fails
// for the end of the file, and both allocate for each file. Programs that are started inherit none
// of these descriptors.

// The size in bytes of the blocks in which files are read.
inline constexpr std::size_t blocksize = 65536;

// Takes a path and opens it for reading. Gives a descriptor, or -1 when that fails.
int openread(const std::filesystem::path& file);

// Takes an open directory and the name of a file in it, and opens that file for reading unless it
// is a link. Gives a descriptor, or -1 when that fails.
int openread(int directory, const char* name);

// Takes a descriptor and room for `size` bytes, and reads up to that many. Gives the number of
// bytes read, 0 at the end of the file and -1 when the read fails.
long readblock(int descriptor, char* block, std::size_t size);

// Takes a path where nothing stands and creates a file there for writing. Gives a descriptor, or -1
// when that fails.
int opennew(const std::filesystem::path& file);

// Takes a descriptor and writes all of `text`. Gives whether that worked; after a failure what had
// been written stays.
bool writeall(int descriptor, std::string_view text);

// Takes a descriptor and closes it. Gives whether that worked.
bool closefile(int descriptor);

// Takes a path and an existing directory, and returns if the path can be renamed into the
// directory: both lie on one file system, and may be written to where a rename writes, which is in
// a renamed directory as well. Fails in the library's words.
void checkrename(const std::filesystem::path& path, const std::filesystem::path& directory);
