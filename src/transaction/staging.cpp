#include "transaction/staging.h"

#include <stdexcept>

#include "package/tree.h"
#include "transaction/copytree.h"

void stage(const Work& work) {
    for (const BundleKey& key : work.bundles) {
        const std::filesystem::path staged = work.tx / "staged" / key;
        copyTree(work.package / "payload" / key, staged);
        if (tree(staged) != sub(work.manifest, key))
            throw std::runtime_error("Stage verification failed");
    }
}
