#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/again.h"

static int openfile(int directory, const char* name, int flags) {
    return again([&] { return ::openat(directory, name, flags | O_CLOEXEC, 0666); });
}

int openread(const std::filesystem::path& file) {
    return openfile(AT_FDCWD, file.c_str(), O_RDONLY);
}

int openread(int directory, const char* name) {
    return openfile(directory, name, O_RDONLY | O_NOFOLLOW);
}

long readblock(int descriptor, char* block, std::size_t size) {
    return again([&] { return ::read(descriptor, block, size); });
}

int opennew(const std::filesystem::path& file) {
    return openfile(AT_FDCWD, file.c_str(), O_WRONLY | O_CREAT | O_EXCL);
}

bool writeall(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const long put = again([&] { return ::write(descriptor, text.data(), text.size()); });
        if (put <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

bool closefile(int descriptor) {
    return ::close(descriptor) == 0;
}

void checkrename(const std::filesystem::path& path, const std::filesystem::path& directory) {
    struct stat one;
    struct stat other;
    const std::filesystem::path parent = path.parent_path();
    int reason = EXDEV;
    if (again([&] { return ::stat(path.c_str(), &one); }) != 0 ||
        again([&] { return ::stat(directory.c_str(), &other); }) != 0 ||
        again([&] { return ::access(parent.c_str(), W_OK | X_OK); }) != 0 ||
        again([&] { return ::access(directory.c_str(), W_OK | X_OK); }) != 0 ||
        (S_ISDIR(one.st_mode) && again([&] { return ::access(path.c_str(), W_OK); }) != 0)) {
        reason = errno;
    } else if (one.st_dev == other.st_dev) {
        return;
    }
    throw std::filesystem::filesystem_error("cannot rename", path, directory,
                                            std::error_code(reason, std::generic_category()));
}
