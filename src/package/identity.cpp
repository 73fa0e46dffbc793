#include "package/identity.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include "platform/file.h"

static constexpr std::array<std::string_view, 6> names = {
    "MarbrelHD.vst3",        "MarbrelLowCPU.vst3",        "Quellotrone.vst3",
    "MarbrelHDAU.component", "MarbrelLowCPUAU.component", "QuellotroneAU.component",
};

std::set<BundleKey> named(const Manifest& manifest) {
    std::set<BundleKey> bundles;
    for (const auto& [key, digest] : manifest) {
        const std::filesystem::path path = key;
        auto component = path.begin();
        const std::string format = component->string();
        if (++component == path.end()) throw std::runtime_error("Missing bundle");
        const std::string name = component->string();
        if (format != "VST3" && format != "Components")
            throw std::runtime_error("Unexpected format");
        if (std::find(names.begin(), names.end(), name) == names.end())
            throw std::runtime_error("Unexpected bundle identity");
        if ((format == "VST3") != name.ends_with(".vst3"))
            throw std::runtime_error("Format mismatch");
        bundles.insert(format + '/' + name);
    }
    return bundles;
}

std::string productof(const std::filesystem::path& package) {
    std::string product;
    if (const int descriptor = openread(package / "PRODUCT.txt"); descriptor >= 0) {
        // Longer than either product: a first line that does not end in here is neither.
        std::array<char, 64> block;
        const long got = readblock(descriptor, block.data(), block.size());
        closefile(descriptor);
        if (got > 0) product.assign(block.data(), static_cast<std::size_t>(got));
    }
    product = product.substr(0, product.find('\n'));
    if (product != "Marbrel" && product != "Quellotrone")
        throw std::runtime_error("Unknown product");
    return product;
}

void oneproduct(const std::set<BundleKey>& bundles, const std::string& product) {
    for (const BundleKey& key : bundles)
        if ((product == "Marbrel") != (key.find("Marbrel") != std::string::npos))
            throw std::runtime_error("Mixed product package refused");
}

std::string oneformat(const std::set<BundleKey>& bundles) {
    std::set<std::string> formats;
    for (const BundleKey& key : bundles) formats.insert(key.substr(0, key.find('/')));
    if (formats.size() != 1) throw std::runtime_error("Use one format per package");
    return *formats.begin();
}
