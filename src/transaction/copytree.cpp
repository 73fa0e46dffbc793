#include "transaction/copytree.h"

#include "platform/walk.h"

namespace fs = std::filesystem;

// Only if a bit is missing, because some file systems refuse every change of permissions.
static void addMissing(const fs::path& path, fs::perms wanted) {
    if ((fs::status(path).permissions() & wanted) != wanted)
        fs::permissions(path, wanted, fs::perm_options::add);
}

// Like the library's recursive copy, with two differences: the owner can always fill and move a
// directory, and the umask takes no permission from a file.
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
