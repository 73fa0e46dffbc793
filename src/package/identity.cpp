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

std::set<BundleKey> bundlesof(const Manifest& manifest) {
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
        // A first line that is longer than this is no product.
        std::array<char, 64> block;
        std::size_t size = 0;
        long got = 0;
        while (std::find(block.begin(), block.begin() + size, '\n') == block.begin() + size &&
               (got = readblock(descriptor, block.data() + size, block.size() - size)) > 0)
            size += static_cast<std::size_t>(got);
        closefile(descriptor);
        product.assign(block.data(), size);
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
