#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QStringList>

#include <memory>
#include <optional>

typedef struct _XDisplay Display;

// Reads an X selection (PRIMARY, CLIPBOARD) over a connection of the calling thread's own, all within
// one deadline. Qt's clipboard would ask on the GUI thread and wait up to five seconds for an owner that
// does not answer; this never involves the GUI thread, except that of the owner when it is Nubra itself.
class X11SelectionReader {
public:
    enum class Outcome {
        ok,
        refused, // the owner does not offer that target
        failed   // no display, no answer in time, or more than the caller accepts
    };
    struct Read {
        Outcome outcome = Outcome::failed;
        QByteArray bytes;
    };

    X11SelectionReader(const char* selection, int timeoutMs);
    ~X11SelectionReader();
    X11SelectionReader(const X11SelectionReader&) = delete;
    X11SelectionReader& operator=(const X11SelectionReader&) = delete;

    bool hasOwner() const;
    // The targets the owner offers, by name; nothing when it does not say in time.
    std::optional<QStringList> targets();
    Read read(const QByteArray& target, qsizetype maxBytes);

private:
    struct Connection;
    std::unique_ptr<Connection> m_connection;
    QDeadlineTimer m_deadline;
};
