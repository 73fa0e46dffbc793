#include "package/tree.h"

#include <CommonCrypto/CommonDigest.h>

#include <array>
#include <stdexcept>

#include "package/safe.h"
#include "platform/file.h"
#include "platform/walk.h"

using Block = std::array<char, blocksize>;

static std::string hexadecimal(const unsigned char* bytes, std::size_t size) {
    std::string digits;
    digits.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        digits += "0123456789abcdef"[bytes[i] >> 4];
        digits += "0123456789abcdef"[bytes[i] & 15];
    }
    return digits;
}

static std::string digest(const std::filesystem::path& file, Block& block) {
    const int descriptor = openread(file);
    if (descriptor < 0) throw std::runtime_error("Cannot read " + file.string());
    CC_SHA256_CTX context;
    CC_SHA256_Init(&context);
    long got;
    while ((got = readblock(descriptor, block.data(), block.size())) > 0)
        CC_SHA256_Update(&context, block.data(), static_cast<CC_LONG>(got));
    closefile(descriptor);
    if (got < 0) throw std::runtime_error("Read failed");
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
    Block block;
    walk(root, [&](const std::filesystem::path& path, const std::filesystem::file_status& status) {
        if (std::filesystem::is_symlink(status)) throw std::runtime_error("Symlink member refused");
        if (std::filesystem::is_regular_file(status))
            manifest[path.native().substr(cut)] = digest(path, block);
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
