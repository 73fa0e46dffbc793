#pragma once

#include <filesystem>

#include "package/manifest.h"

// Takes the package's manifest, the receipt's path and the transaction directory. Writes the new
// receipt beside the old one, moves the old one, if any, into the transaction directory, and the
// new one into its place.
// Fails with "Stale transaction receipt preserved; contact support", "Cannot write receipt",
// "Receipt write failed", like `safe`, or in the library's words.
void writereceipt(const Manifest& manifest, const std::filesystem::path& receiptPath,
                  const std::filesystem::path& tx);

// Takes the receipt's path and the transaction directory, and moves the receipt, if any, there.
// Fails in the library's words.
void removereceipt(const std::filesystem::path& receiptPath, const std::filesystem::path& tx);
