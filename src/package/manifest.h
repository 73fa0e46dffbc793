#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

// The expected content of a set of files: for each relative path the SHA-256 of the file's bytes,
// as 64 lower-case hexadecimal characters. Ordered by the unsigned bytes of the path.
using Manifest = std::map<std::string, std::string>;

// Takes the path of a CONTENTS.sha256 or a receipt, and gives the manifest in it, which is never
// empty. If a read fails, the file counts as ended there.
// Fails with "Manifest missing: " and the path, "Malformed manifest", "Invalid hash",
// "Absolute manifest path refused", "Unsafe manifest path", "Duplicate manifest entry" or
// "Empty manifest".
Manifest read(const std::filesystem::path& file);

// Takes the content of such a file and gives the manifest in it. Fails like `read`, except for
// "Manifest missing: ".
Manifest parse(std::string_view text);

// Takes a manifest and gives it as the content of a file for `read`: one line for each entry, in
// order.
std::string asLines(const Manifest& manifest);
