#pragma once

#include <filesystem>
#include <map>
#include <string>

// What a set of files must be: the relative path of each file and the SHA-256 of its bytes as 64
// lower-case hexadecimal characters, ascending by unsigned bytes of the path. Two manifests are
// equal when they hold the same paths with the same digests.
using Manifest = std::map<std::string, std::string>;

// Takes the path of a CONTENTS.sha256 or a receipt and gives the manifest in it, which is never
// empty. A read that breaks off counts as the end of the file.
// Fails with "Manifest missing: " and the path, "Malformed manifest", "Invalid hash",
// "Absolute manifest path refused", "Unsafe manifest path", "Duplicate manifest entry" or
// "Empty manifest".
Manifest read(const std::filesystem::path& file);

// Takes a reader of a manifest, such as `read`, and the path to read. Gives the manifest, or an
// empty one when the reader fails with a runtime error, the system's own or the file system's.
// Other failures, such as a lack of memory, pass through.
Manifest readOrEmpty(Manifest reader(const std::filesystem::path&),
                     const std::filesystem::path& path);

// Takes a manifest and gives the file content that `read` takes back: one line for each entry,
// in order.
std::string asLines(const Manifest& manifest);
