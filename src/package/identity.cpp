#include "package/identity.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include "platform/file.h"

static constexpr auto bundlenames = std::to_array<std::string_view>({
    "MarbrelHD.vst3",
    "MarbrelLowCPU.vst3",
    "Quellotrone.vst3",
    "MarbrelHDAU.component",
    "MarbrelLowCPUAU.component",
    "QuellotroneAU.component",
});

void checkproduct(const std::string& product) {
    if (std::find(products.begin(), products.end(), product) == products.end())
        throw std::runtime_error("Unknown product");
}

void checkformat(const std::string& format) {
    if (std::find(formats.begin(), formats.end(), format) == formats.end())
        throw std::runtime_error("Unexpected format");
}

std::set<BundleKey> bundlesof(const Manifest& manifest) {
    std::set<BundleKey> bundles;
    for (const auto& [key, digest] : manifest) {
        const std::size_t slash = key.find('/');
        if (slash == std::string::npos) throw std::runtime_error("Missing bundle");
        const std::string format = key.substr(0, slash);
        // A run of separators counts as one.
        const std::size_t begin = std::min(key.find_first_not_of('/', slash), key.size());
        const std::string name = key.substr(begin, key.find('/', begin) - begin);
        checkformat(format);
        if (std::find(bundlenames.begin(), bundlenames.end(), name) == bundlenames.end())
            throw std::runtime_error("Unexpected bundle identity");
        if ((format == "VST3") != name.ends_with(".vst3"))
            throw std::runtime_error("Format mismatch");
        bundles.insert(format + '/' + name);
    }
    return bundles;
}

std::string productof(const std::filesystem::path& package) {
    std::array<char, 64> block;  // a first line that is longer is no product
    std::string text;
    text.reserve(2 * block.size());  // nothing may fail while the file is open
    const int descriptor = openread(package / "PRODUCT.txt");
    for (long got; text.size() < block.size() && text.find('\n') == std::string::npos &&
                   (got = readblock(descriptor, block.data(), block.size())) > 0;)
        text.append(block.data(), static_cast<std::size_t>(got));
    closefile(descriptor);
    std::string product = text.substr(0, text.find('\n'));
    checkproduct(product);
    return product;
}

void checkoneproduct(const std::set<BundleKey>& bundles, const std::string& product) {
    for (const BundleKey& key : bundles)
        if ((product == "Marbrel") != (key.find("Marbrel") != std::string::npos))
            throw std::runtime_error("Mixed product package refused");
}

std::string oneformat(const std::set<BundleKey>& bundles) {
    std::set<std::string> found;
    for (const BundleKey& key : bundles) found.insert(key.substr(0, key.find('/')));
    if (found.size() != 1) throw std::runtime_error("Use one format per package");
    return *found.begin();
}

std::set<BundleKey> knownbundles(const std::string& product, const std::string& format) {
    std::set<BundleKey> bundles;
    for (const std::string_view name : bundlenames)
        if (name.ends_with(".vst3") == (format == "VST3") &&
            (name.find("Marbrel") != std::string_view::npos) == (product == "Marbrel"))
            bundles.insert(format + '/' + std::string(name));
    return bundles;
}
