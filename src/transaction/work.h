#pragma once

#include <filesystem>
#include <set>
#include <vector>

#include "install/preflight.h"
#include "package/identity.h"
#include "package/manifest.h"

// The input of all phases that change the disk. All paths are absolute, except if HOME is not.
struct Work {
    std::filesystem::path package;      // the package directory
    std::filesystem::path testRoot;     // empty when there is none
    std::filesystem::path receiptPath;  // the receipt of the package's product and format
    std::filesystem::path tx;           // the run directory
    Manifest manifest;                  // the package's
    std::set<BundleKey> bundles;        // the package's
    CapturedTrees captured;             // the installed ones, as preflight found them
};

// The moves of the commit so far, in their order.
struct Done {
    std::vector<BundleKey> moved;      // bundles moved from their destination to `original`
    std::vector<BundleKey> installed;  // bundles moved from `staged` to their destination
};
