#pragma once

#include <QObject>

#include <optional>

class Accessibility;
class TaskRunner;

// The accessibility permission as the GUI thread may ask for it: the platform's trust query can block
// (on Linux a D-Bus round trip of up to 300 ms), so it runs on a background thread and the last answer
// is kept here. Main thread only, apart from the query itself.
class TrustWatcher final : public QObject {
    Q_OBJECT

public:
    // Both must outlive every query this watcher starts.
    TrustWatcher(Accessibility& accessibility, TaskRunner& tasks, QObject* parent = nullptr);

    // The last answer; none until the first query has come back.
    std::optional<bool> isTrusted() const { return m_trusted; }
    // Asks the platform again, unless a query is already under way.
    void refresh();

signals:
    // Every answer, once it is cached.
    void answered(bool trusted);
    // The answer changed; the first answer counts as a change.
    void trustChanged(bool trusted);

private:
    Accessibility& m_accessibility;
    TaskRunner& m_tasks;
    std::optional<bool> m_trusted;
    bool m_asking = false;
};
