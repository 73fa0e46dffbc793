#pragma once

#include <filesystem>
#include <map>
#include <set>

#include "package/identity.h"
#include "package/manifest.h"

// The content of each bundle of the package that is installed.
using CapturedTrees = std::map<BundleKey, Manifest>;

// Takes the package directory, the test root, the package's manifest and bundles, and the receipt's
// manifest, which is empty if there is no receipt. Verifies each bundle of the payload. Checks that
// the installed bundle matches the package or the receipt and is not loaded. Gives the installed
// bundles.
// Fails with "Package checksum mismatch: " and the bundle, "Unknown or modified plugin preserved: "
// and the destination, or like `safe`, `tree`, `target` and `unloaded`.
CapturedTrees preflight(const std::filesystem::path& package, const std::filesystem::path& testRoot,
                        const Manifest& manifest, const std::set<BundleKey>& bundles,
                        const Manifest& receiptManifest);
