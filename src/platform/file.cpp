#include "platform/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/again.h"

static int openFile(int directory, const char* name, int flags) {
    return again([&] { return ::openat(directory, name, flags | O_CLOEXEC, 0666); });
}

bool readBlocks(int descriptor, const Take& take) {
    std::array<char, blockSize> block;
    long got;
    // Until a read returns no bytes, because some file systems report a wrong size.
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
