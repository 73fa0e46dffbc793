#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "package/manifest.h"

// Takes the root directory of a bundle and gives the manifest of every regular file below it as it
// stands on disk now, with keys relative to the root. It is never empty.
// Fails with "Symlink path refused: " and the link, "Bundle missing: " and the root, "Symlink
// member refused", "Cannot read " and the file, "Read failed", "Empty bundle refused", or in the
// library's words.
Manifest tree(const std::filesystem::path& root);

// Takes a manifest of many bundles and the key of one, and gives the entries of that bundle, with
// keys relative to its root; possibly none. It has no failure of its own.
Manifest sub(const Manifest& manifest, const std::string& key);

// Takes the content of a small file, and gives its SHA-256 as a manifest has it.
std::string digest(std::string_view bytes);
