#include "transaction/copytree.h"

// The library's recursive copy goes the same way, but leaves permission bits to the umask.
static void copyall(const std::filesystem::path& from, const std::filesystem::path& to) {
    const std::filesystem::file_status status = std::filesystem::status(from);
    if (std::filesystem::is_directory(status)) {
        std::filesystem::create_directory(to);
        // The copy of a read-only directory has to take its content first.
        std::filesystem::permissions(to, std::filesystem::perms::owner_all);
        for (const auto& entry : std::filesystem::directory_iterator(from))
            copyall(entry.path(), to / entry.path().filename());
    } else {
        std::filesystem::copy(from, to);
    }
    std::filesystem::permissions(to, status.permissions());
}

void copyTree(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::create_directories(to.parent_path());
    copyall(from, to);
}
