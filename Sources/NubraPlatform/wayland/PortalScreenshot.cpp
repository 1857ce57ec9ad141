#include "NubraPlatform/wayland/PortalScreenshot.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QCoreApplication>
#include <QCursor>
#include <QFile>
#include <QGuiApplication>
#include <QImageReader>
#include <QPointer>
#include <QScreen>
#include <QThreadPool>
#include <QUrl>

namespace {

const QString interface = QStringLiteral("org.freedesktop.portal.Screenshot");

QString failureText() {
    return L10n::t(QStringLiteral("The desktop did not hand over a picture of the screen."),
                   QStringLiteral("桌面未提供屏幕截图。"));
}

QRect screenUnderPointer() {
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
}

} // namespace

PortalScreenshot::PortalScreenshot(const QDBusConnection& bus, const Portal::Deadlines& deadlines)
    : m_bus(bus), m_deadlines(deadlines) {}

PortalScreenshot::~PortalScreenshot() = default;

void PortalScreenshot::take(QObject* context, std::function<void(Result)> done) {
    const QString token = Portal::newToken();
    QDBusMessage call = QDBusMessage::createMethodCall(Portal::service, Portal::path, interface,
                                                       QStringLiteral("Screenshot"));
    call << QString()
         << QVariantMap{{QStringLiteral("handle_token"), token},
                        {QStringLiteral("interactive"), true},
                        {QStringLiteral("modal"), true}};
    QPointer<QObject> receiver(context);
    // A second request replaces the first, whose dialog the desktop then takes down.
    m_request = std::make_unique<PortalRequest>(
        m_bus, call, token, m_deadlines.userAnswer,
        [this, receiver, done = std::move(done)](uint outcome, const QVariantMap& results) {
            m_request.release()->deleteLater();
            if (!receiver)
                return;
            if (outcome != PortalRequest::success) {
                nbDebug(QStringLiteral("portal: Screenshot outcome=%1").arg(outcome));
                done({{}, outcome == PortalRequest::cancelled ? QString() : failureText()});
                return;
            }
            const QString path = QUrl(results.value(QStringLiteral("uri")).toString()).toLocalFile();
            const QRect screen = screenUnderPointer();
            // Decoding a whole-desktop PNG takes a while.
            QThreadPool::globalInstance()->start([receiver, done, path, screen] {
                QImageReader reader(path);
                const QImage image = reader.read();
                if (!path.isEmpty())
                    QFile::remove(path);
                // Back through the application object, which outlives the receiver.
                QMetaObject::invokeMethod(QCoreApplication::instance(), [receiver, done, image, screen] {
                    if (!receiver)
                        return;
                    if (image.isNull())
                        done({{}, failureText()});
                    else
                        done({{{image, screen}}, QString()});
                });
            });
        });
}
