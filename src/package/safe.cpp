#include "package/safe.h"

#include <stdexcept>

void safe(const std::filesystem::path& path) {
    std::filesystem::path current = path;
    while (!current.empty()) {
        if (std::filesystem::is_symlink(std::filesystem::symlink_status(current)))
            throw std::runtime_error("Symlink path refused: " + current.string());
        const std::filesystem::path parent = current.parent_path();
        if (parent == current) return;
        current = parent;
    }
}

bool stands(const std::filesystem::path& path) {
    safe(path);
    return std::filesystem::exists(path);
}
