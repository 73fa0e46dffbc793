#include "transaction/copytree.h"

#include "platform/walk.h"

namespace fs = std::filesystem;

// Only where one is missing: there are file systems that refuse every change of permissions.
static void addMissing(const fs::path& path, fs::perms wanted) {
    if ((fs::status(path).permissions() & wanted) != wanted)
        fs::permissions(path, wanted, fs::perm_options::add);
}

// As the library's recursive copy goes, with two differences: a directory can always be filled and
// moved by its owner, and no umask takes permissions from a file.
static void copyAll(const fs::path& from, const fs::path& to) {
    const fs::file_status status = fs::status(from);
    if (fs::is_directory(status)) {
        fs::create_directory(to, from);
        addMissing(to, fs::perms::owner_all);
        for (const std::string& name : names(from)) copyAll(from / name, to / name);
    } else {
        fs::copy(from, to);
        addMissing(to, status.permissions() & fs::perms::all);
    }
}

void copyTree(const fs::path& from, const fs::path& to) {
    fs::create_directories(to.parent_path());
    copyAll(from, to);
}
