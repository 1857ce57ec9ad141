#pragma once

#include <QByteArray>

#include <optional>

// Reads the read end of a pipe until the writer closes it. Nothing when the writer took longer than
// `timeoutMs` in all or wrote more than `maxBytes`: a selection owner cannot stall or flood the reader.
std::optional<QByteArray> readPipe(int fd, qsizetype maxBytes, int timeoutMs);

// A pipe whose ends close with it.
class Pipe {
public:
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool valid() const { return m_fds[0] >= 0; }
    int readEnd() const { return m_fds[0]; }
    int writeEnd() const { return m_fds[1]; }
    void closeWriteEnd();

private:
    int m_fds[2] = {-1, -1};
};
