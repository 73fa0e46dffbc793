#pragma once

#include <filesystem>
#include <set>
#include <vector>

#include "install/preflight.h"
#include "package/identity.h"
#include "package/manifest.h"

// What a run works on from its first change on. All paths are absolute, unless HOME is not.
struct Work {
    std::filesystem::path package;      // the package directory
    std::filesystem::path testRoot;     // empty when there is none
    std::filesystem::path receiptPath;  // the receipt of the package's product and format
    std::filesystem::path tx;           // the run's transaction directory
    Manifest manifest;                  // the package's
    std::set<BundleKey> bundles;        // the package's
    CapturedTrees captured;             // what preflight found at their destinations
};

// What the commit has done so far, in that order.
struct Done {
    std::vector<BundleKey> moved;      // bundles moved from their destination to `original`
    std::vector<BundleKey> installed;  // bundles moved from `staged` to their destination
};
