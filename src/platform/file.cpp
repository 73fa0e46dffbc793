#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/again.h"

static int openFile(int directory, const char* name, int flags) {
    return again([&] { return ::openat(directory, name, flags | O_CLOEXEC, 0666); });
}

bool readBlocks(int descriptor, const Take& take) {
    std::array<char, blockSize> block;
    long got;
    // Until a read gives nothing: there are file systems that tell a wrong size.
    while ((got = again([&] { return ::read(descriptor, block.data(), block.size()); })) > 0)
        if (!take({block.data(), static_cast<std::size_t>(got)})) return true;
    return got == 0;
}

static ReadEnd readAndClose(int descriptor, const Take& take) {
    if (descriptor < 0) return ReadEnd::notOpened;
    bool complete = false;
    try {
        complete = readBlocks(descriptor, take);
    } catch (...) {
        closeFile(descriptor);
        throw;
    }
    closeFile(descriptor);
    return complete ? ReadEnd::complete : ReadEnd::brokenOff;
}

ReadEnd readFile(const std::filesystem::path& file, const Take& take) {
    return readAndClose(openFile(AT_FDCWD, file.c_str(), O_RDONLY), take);
}

ReadEnd readFile(int directory, const char* name, const Take& take) {
    return readAndClose(openFile(directory, name, O_RDONLY | O_NOFOLLOW), take);
}

int openNew(const std::filesystem::path& file) {
    return openFile(AT_FDCWD, file.c_str(), O_WRONLY | O_CREAT | O_EXCL);
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const long put = again([&] { return ::write(descriptor, text.data(), text.size()); });
        if (put <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

bool closeFile(int descriptor) {
    return ::close(descriptor) == 0;
}

void checkRename(const std::filesystem::path& path, const std::filesystem::path& directory) {
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
