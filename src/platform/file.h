#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string_view>

// Files by descriptor. The standard streams would not do: one library's takes a read that fails
// for the end of the file, and both allocate for each file. Programs that are started inherit none
// of these descriptors.

// The size in bytes of the blocks in which files are read.
inline constexpr std::size_t blockSize = 65536;

// How the reading of a file ended; `complete`, at its end or where the caller had enough.
enum class ReadEnd { notOpened, brokenOff, complete };

// Takes one block, 1 to `blockSize` bytes, and gives whether to go on.
using Take = std::function<bool(std::string_view)>;

// Takes a path, opens the file, hands each block to `take` in order, and closes the file, also when
// `take` fails. Gives how the reading ended. Fails only like `take`.
ReadEnd readFile(const std::filesystem::path& file, const Take& take);

// The same for a file in an open directory, by its name there. A link counts as not opened.
ReadEnd readFile(int directory, const char* name, const Take& take);

// Takes an open descriptor and hands each block to `take`. Gives false if a read failed.
bool readBlocks(int descriptor, const Take& take);

// Takes a path where nothing stands and creates a file there for writing. Gives a descriptor, or -1
// when that fails.
int openNew(const std::filesystem::path& file);

// Takes a descriptor and writes all of `text`. Gives whether that worked; after a failure what had
// been written stays.
bool writeAll(int descriptor, std::string_view text);

// Takes a descriptor and closes it. Gives whether that worked.
bool closeFile(int descriptor);
