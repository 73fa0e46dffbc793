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

// Takes the next block of the file. An incomplete last line stays in `line`.
static void addText(Manifest& manifest, std::string& line, std::string_view text) {
    for (std::size_t end; (end = text.find('\n')) != std::string_view::npos;
         text.remove_prefix(end + 1)) {
        addLine(manifest, line.append(text.substr(0, end)));
        line.clear();
    }
    line.append(text);
    // An endless line, for example from a device, is refused before it fills the memory.
    if (line.size() > keyOffset) checkHead(line);
}

static void addLast(Manifest& manifest, const std::string& line) {
    if (!line.empty()) addLine(manifest, line);
    if (manifest.empty()) throw std::runtime_error("Empty manifest");
}

Manifest read(const std::filesystem::path& file) {
    Manifest manifest;
    std::string line;
    const ReadEnd end = readFile(file, [&](std::string_view block) {
        addText(manifest, line, block);
        return true;
    });
    if (end == ReadEnd::notOpened) throw std::runtime_error("Manifest missing: " + file.string());
    addLast(manifest, line);
    return manifest;
}

Manifest parse(std::string_view text) {
    Manifest manifest;
    std::string line;
    addText(manifest, line, text);
    addLast(manifest, line);
    return manifest;
}

std::string asLines(const Manifest& manifest) {
    std::string lines;
    for (const auto& [key, digest] : manifest) lines.append(digest + "  " + key + '\n');
    return lines;
}
