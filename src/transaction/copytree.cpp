#include "transaction/copytree.h"

#include "platform/walk.h"

// As the library's recursive copy goes, which leaves permission bits to the umask, each library's
// in its own way. Set behind the content, since a write may strip bits.
static void copyall(const std::filesystem::path& from, const std::filesystem::path& to) {
    const std::filesystem::file_status status = std::filesystem::status(from);
    if (std::filesystem::is_directory(status)) {
        std::filesystem::create_directory(to);
        // The copy of a read-only directory has to take its content first.
        std::filesystem::permissions(to, std::filesystem::perms::owner_all);
        for (const std::string& name : names(from)) copyall(from / name, to / name);
    } else {
        std::filesystem::copy(from, to);
    }
    std::filesystem::permissions(to, status.permissions());
}

void copyTree(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::create_directories(to.parent_path());
    copyall(from, to);
}
