#pragma once

#include <filesystem>
#include <map>
#include <set>

#include "package/identity.h"
#include "package/manifest.h"

// What stood at the destination of each installed bundle of the package.
using CapturedTrees = std::map<BundleKey, Manifest>;

// Takes the package directory, the test root, the package's manifest and bundles, and the
// receipt's manifest, empty when there is no receipt. Proves each bundle of the payload, and that
// what stands at its destination is known and not loaded. Gives what it found installed.
// Fails with "Package checksum mismatch: " and the bundle, "Unknown or modified plugin preserved: "
// and the destination, or like `safe`, `tree`, `target` and `unloaded`.
CapturedTrees preflight(const std::filesystem::path& package, const std::filesystem::path& testRoot,
                        const Manifest& manifest, const std::set<BundleKey>& bundles,
                        const Manifest& receiptManifest);
