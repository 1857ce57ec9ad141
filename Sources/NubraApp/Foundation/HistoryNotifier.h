#pragma once

#include <QObject>

// The application-wide "the history changed" signal: posted after every attempt to store a lookup and
// whenever the history window is shown; the history window reloads on it.
class HistoryNotifier : public QObject {
    Q_OBJECT
public:
    static HistoryNotifier& shared();

    void post() { emit nubraHistoryDidUpdate(); }

signals:
    void nubraHistoryDidUpdate();
};
