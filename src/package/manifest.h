#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

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

// Takes the content of such a file and gives the manifest in it. Fails like `read`, except that no
// file can be missing.
Manifest parse(std::string_view text);

// Takes a manifest and gives the file content that `read` takes back: one line for each entry,
// in order.
std::string asLines(const Manifest& manifest);
