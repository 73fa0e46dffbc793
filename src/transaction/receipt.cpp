#include "transaction/receipt.h"

#include <stdexcept>

#include "package/safe.h"
#include "platform/file.h"

static void moveaway(const std::filesystem::path& receiptPath, const std::filesystem::path& to) {
    if (std::filesystem::exists(receiptPath)) std::filesystem::rename(receiptPath, to);
}

void writereceipt(const Manifest& manifest, const std::filesystem::path& receiptPath,
                  const std::filesystem::path& tx) {
    const std::filesystem::path temporary = receiptPath.string() + ".tmp";
    if (stands(temporary))
        throw std::runtime_error("Stale transaction receipt preserved; contact support");
    const std::string lines = aslines(manifest);
    const int descriptor = opennew(temporary);
    if (descriptor < 0) throw std::runtime_error("Cannot write receipt");
    const bool written = writeall(descriptor, lines);
    closefile(descriptor);
    if (!written) throw std::runtime_error("Receipt write failed");
    moveaway(receiptPath, tx / "previous-receipt.sha256");
    std::filesystem::rename(temporary, receiptPath);
}

void removereceipt(const std::filesystem::path& receiptPath, const std::filesystem::path& tx) {
    moveaway(receiptPath, tx / "removed-receipt.sha256");
}
