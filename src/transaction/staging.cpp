#include "transaction/staging.h"

#include <stdexcept>

#include "package/tree.h"
#include "transaction/copytree.h"

void stage(const std::filesystem::path& package, const Manifest& manifest,
           const std::set<BundleKey>& bundles, const std::filesystem::path& tx) {
    for (const BundleKey& key : bundles) {
        const std::filesystem::path staged = tx / "staged" / key;
        copyTree(package / "payload" / key, staged);
        if (tree(staged) != sub(manifest, key))
            throw std::runtime_error("Stage verification failed");
    }
}
