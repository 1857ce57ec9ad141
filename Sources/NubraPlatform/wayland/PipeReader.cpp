#include "NubraPlatform/wayland/PipeReader.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

std::optional<QByteArray> readPipe(int fd, qsizetype maxBytes, int timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    QByteArray bytes;
    char chunk[16384];
    while (true) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return std::nullopt;
        pollfd readable{fd, POLLIN, 0};
        const int ready = poll(&readable, 1, int(left));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return std::nullopt;
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got == 0)
            return bytes;
        if (got < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            return std::nullopt;
        }
        if (bytes.size() + got > maxBytes)
            return std::nullopt;
        bytes.append(chunk, got);
    }
}

Pipe::Pipe() {
    if (pipe2(m_fds, O_CLOEXEC) != 0)
        m_fds[0] = m_fds[1] = -1;
}

Pipe::~Pipe() {
    for (int fd : m_fds) {
        if (fd >= 0)
            close(fd);
    }
}

void Pipe::closeWriteEnd() {
    if (m_fds[1] >= 0)
        close(m_fds[1]);
    m_fds[1] = -1;
}
