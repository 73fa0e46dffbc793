#include "transaction/receipt.h"

#include <stdexcept>

#include "package/safe.h"
#include "platform/file.h"

static void moveaway(const Work& work, const char* name) {
    if (std::filesystem::exists(work.receiptPath))
        std::filesystem::rename(work.receiptPath, work.tx / name);
}

void writereceipt(const Work& work) {
    const std::filesystem::path temporary = work.receiptPath.string() + ".tmp";
    if (stands(temporary))
        throw std::runtime_error("Stale transaction receipt preserved; contact support");
    const std::string lines = aslines(work.manifest);
    const int descriptor = opennew(temporary);
    if (descriptor < 0) throw std::runtime_error("Cannot write receipt");
    const bool written = writeall(descriptor, lines);
    closefile(descriptor);
    if (!written) throw std::runtime_error("Receipt write failed");
    moveaway(work, "previous-receipt.sha256");
    std::filesystem::rename(temporary, work.receiptPath);
}

void removereceipt(const Work& work) {
    moveaway(work, "removed-receipt.sha256");
}
