#include "package/manifest.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "platform/file.h"

static constexpr std::size_t digestsize = 64;             // bytes
static constexpr std::size_t keyoffset = digestsize + 2;  // bytes: two spaces in between

static void checkhead(const std::string& line) {
    if (line.size() <= keyoffset || line[digestsize] != ' ' || line[digestsize + 1] != ' ')
        throw std::runtime_error("Malformed manifest");
    if (line.find_first_not_of("0123456789abcdef") < digestsize)
        throw std::runtime_error("Invalid hash");
}

static void addline(Manifest& manifest, const std::string& line) {
    checkhead(line);
    const std::string key = line.substr(keyoffset);
    if (key.starts_with('/')) throw std::runtime_error("Absolute manifest path refused");
    for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = key.find('/', begin);
        const std::string_view component = std::string_view(key).substr(begin, end - begin);
        if (component == ".." || component == ".") throw std::runtime_error("Unsafe manifest path");
    }
    if (!manifest.emplace(key, line.substr(0, digestsize)).second)
        throw std::runtime_error("Duplicate manifest entry");
}

Manifest read(const std::filesystem::path& file) {
    const int descriptor = openread(file);
    if (descriptor < 0) throw std::runtime_error("Manifest missing: " + file.string());
    // Closes the file on every way out.
    const std::shared_ptr<void> closing(nullptr, [descriptor](void*) { closefile(descriptor); });

    Manifest manifest;
    std::string line;
    std::array<char, blocksize> block;
    for (long got; (got = readblock(descriptor, block.data(), block.size())) > 0;) {
        std::string_view rest(block.data(), static_cast<std::size_t>(got));
        for (std::size_t end; (end = rest.find('\n')) != std::string_view::npos;
             rest.remove_prefix(end + 1)) {
            addline(manifest, line.append(rest.substr(0, end)));
            line.clear();
        }
        line.append(rest);
        // A line without an end, such as a device gives, is refused before it fills the memory.
        if (line.size() > keyoffset) checkhead(line);
    }
    if (!line.empty()) addline(manifest, line);
    if (manifest.empty()) throw std::runtime_error("Empty manifest");
    return manifest;
}

Manifest readorempty(Manifest reader(const std::filesystem::path&),
                     const std::filesystem::path& path) {
    try {
        return reader(path);
    } catch (const std::runtime_error&) {
        return {};
    }
}

std::string aslines(const Manifest& manifest) {
    std::string lines;
    for (const auto& [key, digest] : manifest) lines.append(digest + "  " + key + '\n');
    return lines;
}
