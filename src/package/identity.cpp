#include "package/identity.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include "platform/file.h"

static constexpr auto bundleNames = std::to_array<std::string_view>({
    "MarbrelHD.vst3",
    "MarbrelLowCPU.vst3",
    "Quellotrone.vst3",
    "MarbrelHDAU.component",
    "MarbrelLowCPUAU.component",
    "QuellotroneAU.component",
});

void checkProduct(const std::string& product) {
    if (std::find(products.begin(), products.end(), product) == products.end())
        throw std::runtime_error("Unknown product");
}

void checkFormat(const std::string& format) {
    if (std::find(formats.begin(), formats.end(), format) == formats.end())
        throw std::runtime_error("Unexpected format");
}

std::set<BundleKey> bundlesOf(const Manifest& manifest) {
    std::set<BundleKey> bundles;
    for (const auto& [key, digest] : manifest) {
        const std::size_t slash = key.find('/');
        if (slash == std::string::npos) throw std::runtime_error("Missing bundle");
        const std::string format = key.substr(0, slash);
        // A run of separators counts as one.
        const std::size_t begin = std::min(key.find_first_not_of('/', slash), key.size());
        const std::string name = key.substr(begin, key.find('/', begin) - begin);
        checkFormat(format);
        if (std::find(bundleNames.begin(), bundleNames.end(), name) == bundleNames.end())
            throw std::runtime_error("Unexpected bundle identity");
        if ((format == "VST3") != name.ends_with(".vst3"))
            throw std::runtime_error("Format mismatch");
        bundles.insert(format + '/' + name);
    }
    return bundles;
}

std::string productOf(const std::filesystem::path& package) {
    std::string product;
    // However the reading ends: what was read is the line.
    readFile(package / "PRODUCT.txt", [&](std::string_view block) {
        const std::size_t end = block.find('\n');
        product.append(block.substr(0, end));
        return end == std::string_view::npos && product.size() < blockSize;
    });
    checkProduct(product);
    return product;
}

void checkOneProduct(const std::set<BundleKey>& bundles, const std::string& product) {
    for (const BundleKey& key : bundles)
        if ((product == "Marbrel") != (key.find("Marbrel") != std::string::npos))
            throw std::runtime_error("Mixed product package refused");
}

std::string oneFormat(const std::set<BundleKey>& bundles) {
    std::set<std::string> found;
    for (const BundleKey& key : bundles) found.insert(key.substr(0, key.find('/')));
    if (found.size() != 1) throw std::runtime_error("Use one format per package");
    return *found.begin();
}

std::set<BundleKey> knownBundles(const std::string& product, const std::string& format) {
    std::set<BundleKey> bundles;
    for (const std::string_view name : bundleNames)
        if (name.ends_with(".vst3") == (format == "VST3") &&
            (name.find("Marbrel") != std::string_view::npos) == (product == "Marbrel"))
            bundles.insert(format + '/' + std::string(name));
    return bundles;
}
