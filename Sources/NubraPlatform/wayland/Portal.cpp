#include "NubraPlatform/wayland/Portal.h"

#include "NubraCore/Support/DebugLog.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QPointer>
#include <QRandomGenerator>

#include <atomic>

namespace Portal {

QString newToken() {
    static std::atomic<quint32> next = 0;
    // A random part keeps a restarted Nubra from meeting requests its previous run left behind.
    return QStringLiteral("nubra_%1_%2").arg(++next).arg(QRandomGenerator::global()->generate());
}

QString objectPath(const QDBusConnection& bus, const QString& kind, const QString& token) {
    QString sender = bus.baseService();
    sender.remove(0, sender.startsWith(u':') ? 1 : 0).replace(u'.', u'_');
    return QStringLiteral("/org/freedesktop/portal/desktop/%1/%2/%3").arg(kind, sender, token);
}

void readProperties(const QDBusConnection& bus, const QString& interface, int deadlineMs, QObject* context,
                    std::function<void(std::optional<QVariantMap>)> done) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"));
    call << interface;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, deadlineMs), context);
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, context, [watcher, interface, done = std::move(done)] {
            watcher->deleteLater();
            const QDBusPendingReply<QVariantMap> reply = *watcher;
            if (reply.isError())
                nbDebug(QStringLiteral("portal: %1 unavailable: %2").arg(interface, reply.error().name()));
            // A portal without the interface may also answer with no properties at all.
            if (reply.isError() || reply.value().isEmpty())
                done(std::nullopt);
            else
                done(reply.value());
        });
}

void closeSession(const QDBusConnection& bus, const QString& sessionPath) {
    bus.asyncCall(QDBusMessage::createMethodCall(
        service, sessionPath, QStringLiteral("org.freedesktop.portal.Session"), QStringLiteral("Close")));
}

} // namespace Portal

PortalRequest::PortalRequest(const QDBusConnection& bus, const QDBusMessage& call, const QString& token,
                             int deadlineMs, Done done)
    : m_bus(bus), m_done(std::move(done)) {
    watch(Portal::objectPath(bus, QStringLiteral("request"), token));
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        nbDebug(QStringLiteral("portal: %1 got no answer in time").arg(m_requestPath));
        finish(failed, {});
    });
    m_deadline.start(deadlineMs);

    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, deadlineMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, method = call.member()] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError()) {
            nbDebug(QStringLiteral("portal: %1 failed: %2").arg(method, reply.error().name()));
            finish(failed, {});
            return;
        }
        // Older portals ignore handle_token and name the request themselves.
        if (reply.value().path() != m_requestPath) {
            unwatch();
            watch(reply.value().path());
        }
    });
}

PortalRequest::~PortalRequest() {
    if (!m_done)
        return;
    unwatch();
    m_bus.asyncCall(QDBusMessage::createMethodCall(Portal::service, m_requestPath,
                                                   QStringLiteral("org.freedesktop.portal.Request"),
                                                   QStringLiteral("Close")));
}

void PortalRequest::watch(const QString& requestPath) {
    m_requestPath = requestPath;
    m_bus.connect(QString(), m_requestPath, QStringLiteral("org.freedesktop.portal.Request"),
                  QStringLiteral("Response"), this, SLOT(onResponse(uint, QVariantMap)));
}

void PortalRequest::unwatch() {
    m_bus.disconnect(QString(), m_requestPath, QStringLiteral("org.freedesktop.portal.Request"),
                     QStringLiteral("Response"), this, SLOT(onResponse(uint, QVariantMap)));
}

void PortalRequest::onResponse(uint outcome, const QVariantMap& results) {
    finish(outcome, results);
}

void PortalRequest::finish(uint outcome, const QVariantMap& results) {
    if (!m_done)
        return;
    unwatch();
    m_deadline.stop();
    // Last, and through a local: `done` may destroy this request.
    const Done done = std::exchange(m_done, {});
    done(outcome, results);
}
