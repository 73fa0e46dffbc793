#include "platform/walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <system_error>

#include "platform/again.h"

using std::filesystem::file_type;
using Stream = std::unique_ptr<DIR, int (*)(DIR*)>;

[[noreturn]] static void fail(const char* action, const std::string& path) {
    throw std::filesystem::filesystem_error(action, path,
                                            std::error_code(errno, std::generic_category()));
}

// Opens a directory in `parent`; `more` are further flags for openat.
static Stream openDirectory(int parent, const char* name, int more, const std::string& path) {
    const int descriptor =
        again([&] { return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | more); });
    if (descriptor < 0) fail("cannot open directory", path);
    Stream stream(::fdopendir(descriptor), ::closedir);
    if (!stream) {
        const int reason = errno;
        ::close(descriptor);
        errno = reason;
        fail("cannot open directory", path);
    }
    return stream;
}

static std::vector<std::string> listing(DIR* stream, const std::string& path) {
    std::vector<std::string> found;
    for (;;) {
        errno = 0;
        if (const dirent* entry = ::readdir(stream)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") found.push_back(name);
        } else if (errno == 0) {
            return found;
        } else if (errno != EINTR) {
            fail("cannot read directory", path);
        }
    }
}

// Takes the status, because the type in the listing would hide that this fails.
static Entry ask(int directory, const std::string& name, const std::string& path) {
    struct stat status;
    Entry entry = {directory, name, path, file_type::not_found};
    if (again([&] { return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW); }) !=
        0) {
        if (errno != ENOENT && errno != ENOTDIR) fail("cannot take status", path);
        return entry;
    }
    entry.type = S_ISREG(status.st_mode)   ? file_type::regular
                 : S_ISDIR(status.st_mode) ? file_type::directory
                 : S_ISLNK(status.st_mode) ? file_type::symlink
                                           : file_type::unknown;
    return entry;
}

// Paths are joined as text, because the library's path type would parse each one again.
static void descend(DIR* stream, const std::string& path,
                    const std::function<void(const Entry&)>& visit) {
    for (const std::string& name : listing(stream, path)) {
        const std::string below = path + name;
        // Later calls with this path would fail; and the limit bounds the depth.
        errno = ENAMETOOLONG;
        if (below.size() >= PATH_MAX) fail("cannot take status", below);
        const Entry entry = ask(::dirfd(stream), name, below);
        visit(entry);
        if (entry.type == file_type::directory)
            descend(openDirectory(entry.directory, name.c_str(), O_NOFOLLOW, below).get(),
                    below + '/', visit);
    }
}

std::vector<std::string> names(const std::filesystem::path& directory) {
    return listing(openDirectory(AT_FDCWD, directory.c_str(), 0, directory).get(), directory);
}

void walk(const std::filesystem::path& root, bool linked,
          const std::function<void(const Entry&)>& visit) {
    const int more = linked ? 0 : O_NOFOLLOW;
    descend(openDirectory(AT_FDCWD, root.c_str(), more, root).get(), (root / "").native(), visit);
}
