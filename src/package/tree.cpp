#include "package/tree.h"

#include <CommonCrypto/CommonDigest.h>

#include <array>
#include <stdexcept>

#include "package/safe.h"
#include "platform/file.h"
#include "platform/walk.h"

using std::filesystem::file_type;

static std::string finish(CC_SHA256_CTX& context) {
    std::array<unsigned char, CC_SHA256_DIGEST_LENGTH> bytes;
    CC_SHA256_Final(bytes.data(), &context);
    std::string digits;
    digits.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) {
        digits += "0123456789abcdef"[byte >> 4];
        digits += "0123456789abcdef"[byte & 15];
    }
    return digits;
}

std::string digest(std::string_view bytes) {
    CC_SHA256_CTX context;
    CC_SHA256_Init(&context);
    CC_SHA256_Update(&context, bytes.data(), static_cast<CC_LONG>(bytes.size()));
    return finish(context);
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
    return finish(context);
}

Manifest tree(const std::filesystem::path& root) {
    safe(root);
    if (!std::filesystem::is_directory(root))
        throw std::runtime_error("Bundle missing: " + root.string());
    // The walk follows no link, so each path in it begins with the root's text; cut that off.
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
