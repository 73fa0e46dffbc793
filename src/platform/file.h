#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string_view>

// Files by descriptor, because one library's streams take a failed read for the end of the file,
// and both libraries' streams allocate memory for each file. Child processes do not inherit the
// descriptors that are opened here.

// The size in bytes of the blocks in which files are read.
inline constexpr std::size_t blockSize = 65536;

// How the reading of a file ended; `complete` if at its end, or if the caller ended it.
enum class ReadEnd { notOpened, brokenOff, complete };

// Takes one block of 1 to `blockSize` bytes, and gives whether to continue.
using Take = std::function<bool(std::string_view)>;

// Takes a path, opens the file, calls `take` with each block in order, and closes the file, even if
// `take` fails. Gives how the reading ended. Fails only like `take`.
ReadEnd readFile(const std::filesystem::path& file, const Take& take);

// The same for a file in an open directory, by its name there. A symbolic link is not opened.
ReadEnd readFile(int directory, const char* name, const Take& take);

// Takes an open descriptor and calls `take` with each block. Gives false if a read failed.
bool readBlocks(int descriptor, const Take& take);

// Takes a path and creates a file there for writing. Gives a descriptor, or -1 on failure, also if
// anything exists at the path.
int openNew(const std::filesystem::path& file);

// Takes a descriptor and writes all of `text`. Gives whether that worked; after a failure, the
// bytes written so far stay.
bool writeAll(int descriptor, std::string_view text);

// Takes a descriptor and closes it. Gives whether that worked.
bool closeFile(int descriptor);
