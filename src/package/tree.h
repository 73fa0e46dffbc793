#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "package/manifest.h"

// Takes the root directory of a bundle, and gives the manifest of all regular files below it, with
// keys relative to the root. Reads every byte from the disk. The manifest is never empty.
// Fails with "Symlink path refused: " and the link, "Bundle missing: " and the root, "Cannot read "
// and the file, "Symlink member refused", "Read failed", "Empty bundle refused", or in the
// library's words.
Manifest tree(const std::filesystem::path& root);

// Takes a manifest of many bundles and the key of one. Gives the entries of that bundle, with keys
// relative to its root; empty if there are none. Raises no failure of its own.
Manifest sub(const Manifest& manifest, const std::string& key);

// Takes the content of a small file, and gives its SHA-256 in the form of a manifest.
std::string digest(std::string_view bytes);
