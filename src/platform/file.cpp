#include "platform/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

static int openfile(const std::filesystem::path& file, int flags) {
    int descriptor = -1;
    do {
        descriptor = ::open(file.c_str(), flags | O_CLOEXEC, 0666);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// Gives whether a read that failed is worth another: it was interrupted, or a FIFO's writer, which
// is waited for from now on, had nothing to read yet.
static bool again(int descriptor) {
    if (errno == EINTR) return true;
    const int flags = errno == EAGAIN ? ::fcntl(descriptor, F_GETFL) : -1;
    return flags >= 0 && (flags & O_NONBLOCK) != 0 &&
           ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
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

bool closefile(int descriptor) {
    int result = -1;
    do {
        result = ::close(descriptor);
    } while (result < 0 && errno == EINTR);
    // One that was closed although it was interrupted: nobody else can have opened it again.
    return result == 0 || errno == EBADF;
}
