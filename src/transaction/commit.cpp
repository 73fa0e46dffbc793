#include "transaction/commit.h"

#include <stdexcept>
#include <utility>

#include "install/locations.h"
#include "install/unloaded.h"
#include "package/tree.h"
#include "transaction/move.h"

// The key is copied beforehand, so that nothing can fail between the rename and its record.
static void moveandrecord(const std::filesystem::path& from, const std::filesystem::path& to,
                          BundleKey key, std::vector<BundleKey>& record) {
    moveto(from, to);
    record.push_back(std::move(key));
}

void commit(const std::filesystem::path& testRoot, bool remove, const Manifest& manifest,
            const std::set<BundleKey>& bundles, const CapturedTrees& captured,
            const std::filesystem::path& tx, std::vector<BundleKey>& moved,
            std::vector<BundleKey>& installed) {
    for (const BundleKey& key : bundles) {
        const std::filesystem::path dest = target(testRoot, key);
        unloaded(dest);
        if (const auto found = captured.find(key); found != captured.end()) {
            if (tree(dest) != found->second)
                throw std::runtime_error("Plugin changed during transaction");
            moveandrecord(dest, tx / "original" / key, key, moved);
        } else if (std::filesystem::exists(dest)) {
            throw std::runtime_error("New destination appeared");
        }
        if (remove) continue;
        moveandrecord(tx / "staged" / key, dest, key, installed);
        if (tree(dest) != sub(manifest, key))
            throw std::runtime_error("Installed readback mismatch");
    }
}
