#include "transaction/commit.h"

#include <stdexcept>
#include <utility>

#include "install/locations.h"
#include "install/unloaded.h"
#include "package/tree.h"
#include "transaction/move.h"

// The key is a copy already, so nothing can fail between the rename and its record.
static void moveAndRecord(const std::filesystem::path& from, const std::filesystem::path& to,
                          BundleKey key, std::vector<BundleKey>& record) {
    moveTo(from, to);
    record.push_back(std::move(key));
}

void commit(const Work& work, bool remove, Done& done) {
    // Reserved now, because no append may fail after a rename.
    done.moved.reserve(work.bundles.size());
    done.installed.reserve(work.bundles.size());
    for (const BundleKey& key : work.bundles) {
        const std::filesystem::path dest = target(work.testRoot, key);
        unloaded(dest);
        if (const auto found = work.captured.find(key); found != work.captured.end()) {
            if (tree(dest) != found->second)
                throw std::runtime_error("Plugin changed during transaction");
            moveAndRecord(dest, work.tx / "original" / key, key, done.moved);
        } else if (std::filesystem::exists(dest)) {
            throw std::runtime_error("New destination appeared");
        }
        if (remove) continue;
        moveAndRecord(work.tx / "staged" / key, dest, key, done.installed);
        if (tree(dest) != sub(work.manifest, key))
            throw std::runtime_error("Installed readback mismatch");
    }
}
