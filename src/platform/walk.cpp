#include "platform/walk.h"

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <system_error>

static void checkerror(const char* action, const std::filesystem::path& directory) {
    if (errno != 0)
        throw std::filesystem::filesystem_error(action, directory,
                                                std::error_code(errno, std::generic_category()));
}

std::vector<std::string> names(const std::filesystem::path& directory) {
    errno = 0;
    const std::shared_ptr<DIR> stream(::opendir(directory.c_str()), [](DIR* opened) {
        if (opened != nullptr) ::closedir(opened);
    });
    if (!stream) checkerror("cannot open directory", directory);
    std::vector<std::string> found;
    errno = 0;
    while (const dirent* entry = ::readdir(stream.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") found.push_back(name);
        errno = 0;
    }
    checkerror("cannot read directory", directory);
    return found;
}

void walk(
    const std::filesystem::path& directory,
    const std::function<void(const std::filesystem::path&, std::filesystem::file_status)>& visit) {
    for (const std::string& name : names(directory)) {
        const std::filesystem::path path = directory / name;
        // Asked afresh: the type in the listing hides a status that cannot be taken.
        const std::filesystem::file_status status = std::filesystem::symlink_status(path);
        visit(path, status);
        if (std::filesystem::is_directory(status)) walk(path, visit);
    }
}
