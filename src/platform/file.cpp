#include "platform/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

int openread(const std::filesystem::path& file) {
    return ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

long readblock(int descriptor, char* block, std::size_t size) {
    ssize_t got;
    do {
        got = ::read(descriptor, block, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

int opennew(const std::filesystem::path& file) {
    return ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

bool writeall(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = ::write(descriptor, text.data(), text.size());
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

void closefile(int descriptor) {
    ::close(descriptor);
}
