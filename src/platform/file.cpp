#include "platform/file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

static int openfile(const std::filesystem::path& file, int flags) {
    int descriptor = -1;
    do {
        descriptor = ::open(file.c_str(), flags | O_CLOEXEC, 0666);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// Gives whether a read that failed is worth another: it was interrupted, or there is something to
// read now where there was nothing yet.
static bool again(int descriptor) {
    pollfd readable = {descriptor, POLLIN, 0};
    return errno == EINTR || (errno == EAGAIN && ::poll(&readable, 1, -1) > 0);
}

int openread(const std::filesystem::path& file) {
    return openfile(file, O_RDONLY | O_NONBLOCK);
}

long readblock(int descriptor, char* block, std::size_t size) {
    ssize_t got = -1;
    do {
        got = ::read(descriptor, block, size);
    } while (got < 0 && again(descriptor));
    return got;
}

int opennew(const std::filesystem::path& file) {
    return openfile(file, O_WRONLY | O_CREAT | O_EXCL);
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
