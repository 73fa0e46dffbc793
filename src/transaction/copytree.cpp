#include "transaction/copytree.h"

#include "platform/walk.h"

namespace fs = std::filesystem;

// As the library's recursive copy goes, with two differences: a directory can always be filled and
// moved by its owner, and no umask takes permissions from a file.
static void copyall(const fs::path& from, const fs::path& to) {
    const fs::file_status status = fs::status(from);
    if (fs::is_directory(status)) {
        fs::create_directory(to, from);
        fs::permissions(
            to, (fs::status(to).permissions() & ~fs::perms::sticky_bit) | fs::perms::owner_all);
        for (const std::string& name : names(from)) copyall(from / name, to / name);
    } else {
        fs::copy(from, to);
        fs::permissions(to, status.permissions());
    }
}

void copyTree(const fs::path& from, const fs::path& to) {
    fs::create_directories(to.parent_path());
    copyall(from, to);
}
