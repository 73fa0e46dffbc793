#include "package/manifest.h"

#include <stdexcept>
#include <string_view>

#include "platform/file.h"

static constexpr std::size_t digestSize = 64;             // bytes
static constexpr std::size_t keyOffset = digestSize + 2;  // bytes: two spaces in between

static void checkHead(const std::string& line) {
    if (line.size() <= keyOffset || line[digestSize] != ' ' || line[digestSize + 1] != ' ')
        throw std::runtime_error("Malformed manifest");
    if (line.find_first_not_of("0123456789abcdef") < digestSize)
        throw std::runtime_error("Invalid hash");
}

static void addLine(Manifest& manifest, const std::string& line) {
    checkHead(line);
    const std::string key = line.substr(keyOffset);
    if (key.starts_with('/')) throw std::runtime_error("Absolute manifest path refused");
    for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = key.find('/', begin);
        const std::string_view component = std::string_view(key).substr(begin, end - begin);
        if (component == ".." || component == ".") throw std::runtime_error("Unsafe manifest path");
    }
    if (!manifest.emplace(key, line.substr(0, digestSize)).second)
        throw std::runtime_error("Duplicate manifest entry");
}

Manifest read(const std::filesystem::path& file) {
    Manifest manifest;
    std::string line;
    const ReadEnd end = readFile(file, [&](std::string_view rest) {
        for (std::size_t end; (end = rest.find('\n')) != std::string_view::npos;
             rest.remove_prefix(end + 1)) {
            addLine(manifest, line.append(rest.substr(0, end)));
            line.clear();
        }
        line.append(rest);
        // A line without an end, such as a device gives, is refused before it fills the memory.
        if (line.size() > keyOffset) checkHead(line);
        return true;
    });
    if (end == ReadEnd::notOpened) throw std::runtime_error("Manifest missing: " + file.string());
    if (!line.empty()) addLine(manifest, line);
    if (manifest.empty()) throw std::runtime_error("Empty manifest");
    return manifest;
}

Manifest readOrEmpty(Manifest reader(const std::filesystem::path&),
                     const std::filesystem::path& path) {
    try {
        return reader(path);
    } catch (const std::runtime_error&) {
        return {};
    }
}

std::string asLines(const Manifest& manifest) {
    std::string lines;
    for (const auto& [key, digest] : manifest) lines.append(digest + "  " + key + '\n');
    return lines;
}
