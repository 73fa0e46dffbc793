#pragma once

#include <filesystem>
#include <vector>

#include "package/identity.h"

// Takes the test root, the receipt's path, the transaction directory and what the commit has moved
// out and in so far. Moves every new bundle to "failed" in the transaction directory, then every
// old one and the receipt back, in the reverse order.
// Fails like `target` or in the library's words, and then stops where it is.
void rollback(const std::filesystem::path& testRoot, const std::filesystem::path& receiptPath,
              const std::filesystem::path& tx, const std::vector<BundleKey>& moved,
              const std::vector<BundleKey>& installed);
