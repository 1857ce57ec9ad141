#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <functional>
#include <optional>

// The desktop portal (xdg-desktop-portal) as Nubra talks to it: every call asynchronous and bounded by a
// deadline, so a portal that is slow, hung or missing never keeps the main thread or a feature waiting.
namespace Portal {

inline const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
inline const QString path = QStringLiteral("/org/freedesktop/portal/desktop");

// How long to wait for the portal. A dialog the user answers gets minutes; the rest gets seconds.
struct Deadlines {
    int reply = 5000;
    int answer = 10000;
    int userAnswer = 180000;
};

// A fresh token for a request or a session handle: unique in this process, a valid path element.
QString newToken();
// Where the portal puts a request's or a session's object for `token` ("request" or "session").
QString objectPath(const QDBusConnection& bus, const QString& kind, const QString& token);

// Reads the properties of one portal interface; empty when the portal or the interface is missing or
// does not answer within `deadlineMs`. `context` going away drops the answer.
void readProperties(const QDBusConnection& bus, const QString& interface, int deadlineMs, QObject* context,
                    std::function<void(std::optional<QVariantMap>)> done);

// Ends a session; the answer does not matter (a session the portal already closed is gone either way).
void closeSession(const QDBusConnection& bus, const QString& sessionPath);

} // namespace Portal

// One portal method that answers through a Request object: the reply names the request, whose Response
// signal carries the outcome. The Response is subscribed to before the call goes out (it may come
// first), and the outcome is `failed` when the call fails or nothing comes by the deadline. Destroyed
// before the outcome, it closes the request, which takes down any dialog the desktop still shows.
class PortalRequest final : public QObject {
    Q_OBJECT

public:
    enum Outcome : uint { success = 0, cancelled = 1, failed = 2 };
    using Done = std::function<void(uint outcome, const QVariantMap& results)>;

    // `call` carries `token` as its handle_token. `done` runs once, on the main thread; it may destroy
    // the request.
    PortalRequest(const QDBusConnection& bus, const QDBusMessage& call, const QString& token, int deadlineMs,
                  Done done);
    ~PortalRequest() override;

private slots:
    void onResponse(uint outcome, const QVariantMap& results);

private:
    void watch(const QString& requestPath);
    void unwatch();
    void finish(uint outcome, const QVariantMap& results);

    QDBusConnection m_bus;
    QString m_requestPath;
    QTimer m_deadline;
    Done m_done;
};
