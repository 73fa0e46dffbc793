#include "transaction/move.h"

#include <set>
#include <stdexcept>

#include "package/safe.h"
#include "package/tree.h"
#include "platform/file.h"

void moveto(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::create_directories(to.parent_path());
    std::filesystem::rename(from, to);
}

void moveall(const std::vector<Move>& moves) {
    std::set<std::filesystem::path> freed;
    for (const auto& [from, to, proof] : moves) {
        if (!freed.contains(to) && stands(to)) throw std::runtime_error("New destination appeared");
        freed.insert(from);
    }
    for (const auto& [from, to, proof] : moves) {
        std::filesystem::path above = to.parent_path();
        while (!stands(above)) above = above.parent_path();
        if (!std::filesystem::is_directory(above))
            throw std::runtime_error("New destination appeared");
        checksamefilesystem(from, above);
    }
    for (const auto& [from, to, proof] : moves) {
        moveto(from, to);
        if (!proof.empty() && tree(to) != proof)
            throw std::runtime_error("Installed readback mismatch");
    }
}
