#include "package/tree.h"

#include <CommonCrypto/CommonDigest.h>

#include <array>
#include <stdexcept>
#include <string_view>

#include "package/safe.h"
#include "platform/file.h"
#include "platform/walk.h"

using std::filesystem::file_type;

static std::string hexadecimal(const unsigned char* bytes, std::size_t size) {
    std::string digits;
    digits.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        digits += "0123456789abcdef"[bytes[i] >> 4];
        digits += "0123456789abcdef"[bytes[i] & 15];
    }
    return digits;
}

static std::string digest(const Entry& entry) {
    CC_SHA256_CTX context;
    CC_SHA256_Init(&context);
    const auto update = [&](std::string_view block) {
        CC_SHA256_Update(&context, block.data(), static_cast<CC_LONG>(block.size()));
        return true;
    };
    const ReadEnd end = readFile(entry.directory, entry.name.c_str(), update);
    if (end == ReadEnd::notOpened) throw std::runtime_error("Cannot read " + entry.path);
    if (end == ReadEnd::brokenOff) throw std::runtime_error("Read failed");
    std::array<unsigned char, CC_SHA256_DIGEST_LENGTH> bytes;
    CC_SHA256_Final(bytes.data(), &context);
    return hexadecimal(bytes.data(), bytes.size());
}

Manifest tree(const std::filesystem::path& root) {
    safe(root);
    if (!std::filesystem::is_directory(root))
        throw std::runtime_error("Bundle missing: " + root.string());
    // There is no link on the way, so the path below the root is what follows the root's text.
    const std::size_t cut = (root / "").native().size();
    Manifest manifest;
    walk(root, false, [&](const Entry& entry) {
        if (entry.type == file_type::symlink) throw std::runtime_error("Symlink member refused");
        if (entry.type == file_type::regular) manifest[entry.path.substr(cut)] = digest(entry);
    });
    if (manifest.empty()) throw std::runtime_error("Empty bundle refused");
    return manifest;
}

Manifest sub(const Manifest& manifest, const std::string& key) {
    const std::string prefix = key + '/';
    Manifest entries;
    for (auto entry = manifest.lower_bound(prefix);
         entry != manifest.end() && entry->first.starts_with(prefix); ++entry)
        entries.emplace_hint(entries.end(), entry->first.substr(prefix.size()), entry->second);
    return entries;
}
