#pragma once

#include <filesystem>
#include <set>

#include "package/identity.h"
#include "package/manifest.h"

// Takes the package directory, its manifest and bundles, and the transaction directory. Copies
// each bundle of the payload into the transaction directory, and proves the copy.
// Fails with "Stage verification failed", or like `copyTree` and `tree`.
void stage(const std::filesystem::path& package, const Manifest& manifest,
           const std::set<BundleKey>& bundles, const std::filesystem::path& tx);
