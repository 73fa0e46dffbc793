#pragma once

#include <filesystem>
#include <string>

#include "package/identity.h"

// All paths begin with the test root, or with the user's home directory if the test root is empty.
// Nothing here reads the disk.

// Gives the user's home directory, the value of HOME unchanged.
// Fails with "User directory unavailable".
std::filesystem::path home();

// Takes the test root and a bundle, and gives the bundle's destination. Fails like `home`.
std::filesystem::path target(const std::filesystem::path& root, const BundleKey& key);

// Takes the test root and gives the support directory. Fails like `home`.
std::filesystem::path supportDir(const std::filesystem::path& root);

// Takes the support directory and gives the path of the receipt of one product in one format.
std::filesystem::path receiptPath(const std::filesystem::path& support, const std::string& product,
                                  const std::string& format);
