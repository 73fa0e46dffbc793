#include "install/preflight.h"

#include <stdexcept>
#include <utility>

#include "install/locations.h"
#include "install/unloaded.h"
#include "package/safe.h"
#include "package/tree.h"

CapturedTrees preflight(const std::filesystem::path& package, const std::filesystem::path& testRoot,
                        const Manifest& manifest, const std::set<BundleKey>& bundles,
                        const Manifest& receiptManifest) {
    CapturedTrees captured;
    for (const BundleKey& key : bundles) {
        const Manifest expected = sub(manifest, key);
        if (tree(package / "payload" / key) != expected)
            throw std::runtime_error("Package checksum mismatch: " + key);
        const std::filesystem::path destination = target(testRoot, key);
        if (!stands(destination)) continue;
        Manifest found = tree(destination);
        if (found != expected && found != sub(receiptManifest, key))
            throw std::runtime_error("Unknown or modified plugin preserved: " +
                                     destination.string());
        captured.emplace(key, std::move(found));
        unloaded(destination);
    }
    return captured;
}
