#include "package/identity.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "platform/file.h"

template <typename List>
static bool has(const List& list, std::string_view name) {
    return std::find(list.begin(), list.end(), name) != list.end();
}

bool isOfFormat(std::string_view name, std::string_view format) {
    return name.ends_with(".vst3") == (format == "VST3");
}

bool isOfProduct(std::string_view key, std::string_view product) {
    return (key.find("Marbrel") != std::string_view::npos) == (product == "Marbrel");
}

std::set<BundleKey> bundlesOf(const Manifest& manifest) {
    std::set<BundleKey> bundles;
    for (const auto& [key, digest] : manifest) {
        const std::size_t slash = key.find('/');
        if (slash == std::string::npos) throw std::runtime_error("Missing bundle");
        const std::string format = key.substr(0, slash);
        // Several separators in a row count as one.
        const std::size_t begin = std::min(key.find_first_not_of('/', slash), key.size());
        const std::string name = key.substr(begin, key.find('/', begin) - begin);
        if (!has(formats, format)) throw std::runtime_error("Unexpected format");
        if (!has(bundleNames, name)) throw std::runtime_error("Unexpected bundle identity");
        if (!isOfFormat(name, format)) throw std::runtime_error("Format mismatch");
        bundles.insert(format + '/' + name);
    }
    return bundles;
}

std::string productOf(const std::filesystem::path& package) {
    std::string product;
    // However the reading ends, the bytes read so far are the line.
    readFile(package / "PRODUCT.txt", [&](std::string_view block) {
        const std::size_t end = block.find('\n');
        product.append(block.substr(0, end));
        return end == std::string_view::npos && product.size() < blockSize;
    });
    if (!has(products, product)) throw std::runtime_error("Unknown product");
    return product;
}

void checkOneProduct(const std::set<BundleKey>& bundles, const std::string& product) {
    for (const BundleKey& key : bundles)
        if (!isOfProduct(key, product)) throw std::runtime_error("Mixed product package refused");
}

std::string oneFormat(const std::set<BundleKey>& bundles) {
    std::set<std::string> found;
    for (const BundleKey& key : bundles) found.insert(key.substr(0, key.find('/')));
    if (found.size() != 1) throw std::runtime_error("Use one format per package");
    return *found.begin();
}
