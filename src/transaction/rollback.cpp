#include "transaction/rollback.h"

#include "install/locations.h"
#include "transaction/move.h"

void rollback(const std::filesystem::path& testRoot, const std::filesystem::path& receiptPath,
              const std::filesystem::path& tx, const std::vector<BundleKey>& moved,
              const std::vector<BundleKey>& installed) {
    for (auto key = installed.rbegin(); key != installed.rend(); ++key)
        moveto(target(testRoot, *key), tx / "failed" / *key);
    for (auto key = moved.rbegin(); key != moved.rend(); ++key)
        std::filesystem::rename(tx / "original" / *key, target(testRoot, *key));
    const std::filesystem::path previous = tx / "previous-receipt.sha256";
    if (std::filesystem::exists(previous) && !std::filesystem::exists(receiptPath))
        std::filesystem::rename(previous, receiptPath);
}
