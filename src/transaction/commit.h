#pragma once

#include <filesystem>
#include <set>
#include <vector>

#include "install/preflight.h"
#include "package/identity.h"
#include "package/manifest.h"

// Takes the test root, whether to remove, the package's manifest and bundles, what preflight
// captured and the transaction directory. Moves each captured bundle from its destination into the
// transaction directory and, unless `remove` is set, each staged bundle to its destination, and
// reads it back. Appends to `moved` and `installed`, which must have room for every bundle, what
// has been moved out and in, directly behind each rename. Fails with "Plugin changed during
// transaction", "New destination appeared", "Installed readback mismatch", like `target`,
// `unloaded` and `tree`, or in the library's words.
void commit(const std::filesystem::path& testRoot, bool remove, const Manifest& manifest,
            const std::set<BundleKey>& bundles, const CapturedTrees& captured,
            const std::filesystem::path& tx, std::vector<BundleKey>& moved,
            std::vector<BundleKey>& installed);
