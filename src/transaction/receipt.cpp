#include "transaction/receipt.h"

#include <stdexcept>

#include "package/safe.h"
#include "platform/file.h"

static void moveAway(const Work& work, const char* name) {
    if (std::filesystem::exists(work.receiptPath))
        std::filesystem::rename(work.receiptPath, work.tx / name);
}

void writeReceipt(const Work& work) {
    const std::filesystem::path temporary = work.receiptPath.string() + ".tmp";
    if (stands(temporary))
        throw std::runtime_error("Stale transaction receipt preserved; contact support");
    const std::string lines = asLines(work.manifest);
    const int descriptor = openNew(temporary);
    if (descriptor < 0) throw std::runtime_error("Cannot write receipt");
    const bool written = writeAll(descriptor, lines);
    closeFile(descriptor);
    if (!written) throw std::runtime_error("Receipt write failed");
    moveAway(work, "previous-receipt.sha256");
    std::filesystem::rename(temporary, work.receiptPath);
}

void removeReceipt(const Work& work) {
    moveAway(work, "removed-receipt.sha256");
}
