#include "transaction/rollback.h"

#include "install/locations.h"
#include "transaction/move.h"

void rollback(const Work& work, const Done& done) {
    for (auto key = done.installed.rbegin(); key != done.installed.rend(); ++key)
        moveTo(target(work.testRoot, *key), work.tx / "failed" / *key);
    for (auto key = done.moved.rbegin(); key != done.moved.rend(); ++key)
        std::filesystem::rename(work.tx / "original" / *key, target(work.testRoot, *key));
    const std::filesystem::path previous = work.tx / "previous-receipt.sha256";
    if (std::filesystem::exists(previous) && !std::filesystem::exists(work.receiptPath))
        std::filesystem::rename(previous, work.receiptPath);
}
