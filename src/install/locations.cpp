#include "install/locations.h"

#include <cstdlib>
#include <stdexcept>

std::filesystem::path home() {
    const char* const value = std::getenv("HOME");
    if (value == nullptr || *value == '\0') throw std::runtime_error("User directory unavailable");
    return value;
}

std::filesystem::path target(const std::filesystem::path& root, const BundleKey& key) {
    return (root.empty() ? home() / "Library/Audio/Plug-Ins" : root / "plugins") / key;
}

std::filesystem::path supportDir(const std::filesystem::path& root) {
    return root.empty() ? home() / "Library/Application Support/Orvelline" : root / "support";
}

std::filesystem::path receiptPath(const std::filesystem::path& support, const std::string& product,
                                  const std::string& format) {
    return support / (product + '-' + format + ".sha256");
}
