#include "NubraPlatform/wayland/KWinWindows.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusServiceWatcher>

#include <chrono>

namespace {

const QString kwinService = QStringLiteral("org.kde.KWin");
const QString receiverPath = QStringLiteral("/ActiveWindow");
const QString receiverInterface = QStringLiteral("org.nubra.ActiveWindow");

// Reports the active window, and each move or resize of it, as its content: KWin's frame has the title
// bar KWin draws, the buffer (the surface) has the shadows a toolkit draws; the content lies in both.
// KWin 6 renamed "client" to "window", so the script takes whichever name is there. callDBus takes at
// most nine arguments; numbers go as whole ones, to match the method's signature.
constexpr char scriptTemplate[] = R"js(
let watched = null;
function report() {
    if (!watched) {
        callDBus("%1", "%2", "%3", "noWindow");
        return;
    }
    const f = watched.frameGeometry, b = watched.bufferGeometry;
    const left = Math.max(f.x, b.x), top = Math.max(f.y, b.y);
    const right = Math.min(f.x + f.width, b.x + b.width), bottom = Math.min(f.y + f.height, b.y + b.height);
    callDBus("%1", "%2", "%3", "window", Math.round(left), Math.round(top), Math.round(right - left),
             Math.round(bottom - top), watched.pid, String(watched.resourceClass));
}
function watch(window) {
    if (watched)
        watched.frameGeometryChanged.disconnect(report);
    watched = window;
    if (watched)
        watched.frameGeometryChanged.connect(report);
    report();
}
(workspace.windowActivated || workspace.clientActivated).connect(watch);
watch(workspace.activeWindow || workspace.activeClient);
)js";

QDBusMessage callScripting(const QDBusConnection& bus, const QString& path, const QString& interface,
                           const QString& method, const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(kwinService, path, interface, method);
    call.setArguments(arguments);
    return bus.call(call, QDBus::Block, KWinWindows::timeoutMs);
}

} // namespace

// Takes the script's reports on the thread of KWinWindows, from KWin alone.
class KWinWindowReceiver : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.nubra.ActiveWindow")
public:
    KWinWindowReceiver(KWinWindows& owner, QString kwin) : m_owner(owner), m_kwin(std::move(kwin)) {}

public Q_SLOTS:
    Q_SCRIPTABLE void window(int x, int y, int width, int height, int pid, const QString& appId) {
        const QRect content(x, y, width, height);
        if (fromKWin())
            m_owner.received(content.isEmpty()
                                 ? std::nullopt
                                 : std::optional(CompositorWindows::Window{content, pid, appId.left(256)}));
    }
    Q_SCRIPTABLE void noWindow() {
        if (fromKWin())
            m_owner.received(std::nullopt);
    }

private:
    bool fromKWin() const { return message().service() == m_kwin; }

    KWinWindows& m_owner;
    QString m_kwin;
};

KWinWindows::KWinWindows() : m_bus(QString()) {
    m_thread.setObjectName(QStringLiteral("KWinWindows"));
}

KWinWindows::~KWinWindows() {
    unload();
    m_thread.quit();
    m_thread.wait();
    delete m_receiver;
    if (!m_bus.name().isEmpty())
        QDBusConnection::disconnectFromBus(m_bus.name());
}

bool KWinWindows::offered() {
    const QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    return bus && bus->isServiceRegistered(kwinService);
}

std::optional<CompositorWindows::Window> KWinWindows::activeWindow() {
    std::unique_lock guard(m_lock);
    if (m_state == State::idle) {
        m_state = State::loading;
        guard.unlock();
        const bool loaded = load();
        guard.lock();
        m_state = loaded ? State::running : State::failed;
    }
    if (m_state != State::running)
        return std::nullopt;
    m_reported.wait_for(guard, std::chrono::milliseconds(timeoutMs), [this] { return m_hasReport; });
    return m_report;
}

bool KWinWindows::load() {
    // A connection of our own, whose calls are not held up by whatever else the process has on the bus.
    m_bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                          QStringLiteral("nubra-kwin-windows-%1").arg(quintptr(this)));
    const QDBusConnectionInterface* bus = m_bus.interface();
    const QString kwin = bus ? bus->serviceOwner(kwinService).value() : QString();
    if (kwin.isEmpty() || !m_script.open())
        return false;
    m_pluginName = QStringLiteral("nubra-active-window-%1").arg(QCoreApplication::applicationPid());
    m_script.write(QString::fromLatin1(scriptTemplate)
                       .arg(m_bus.baseService(), receiverPath, receiverInterface)
                       .toUtf8());
    m_script.flush();

    m_receiver = new KWinWindowReceiver(*this, kwin);
    // A KWin that restarts has forgotten our script: what it told last is no longer true.
    auto* watcher =
        new QDBusServiceWatcher(kwinService, m_bus, QDBusServiceWatcher::WatchForOwnerChange, m_receiver);
    QObject::connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, m_receiver, [this] { kwinGone(); });
    m_receiver->moveToThread(&m_thread);
    m_thread.start();
    if (!m_bus.registerObject(receiverPath, m_receiver, QDBusConnection::ExportScriptableSlots))
        return false;

    const QString scripting = QStringLiteral("org.kde.kwin.Scripting");
    const QDBusMessage loaded =
        callScripting(m_bus, QStringLiteral("/Scripting"), scripting, QStringLiteral("loadScript"),
                      {m_script.fileName(), m_pluginName});
    if (loaded.type() != QDBusMessage::ReplyMessage || loaded.arguments().isEmpty())
        return false;
    const int id = loaded.arguments().constFirst().toInt();
    if (id < 0)
        return false;
    // KWin 5 puts the loaded script at /<id>, KWin 6 at /Scripting/Script<id>.
    for (const QString& path :
         {QStringLiteral("/Scripting/Script%1").arg(id), QStringLiteral("/%1").arg(id)}) {
        if (callScripting(m_bus, path, QStringLiteral("org.kde.kwin.Script"), QStringLiteral("run"), {})
                .type() == QDBusMessage::ReplyMessage)
            return true;
    }
    unload();
    return false;
}

void KWinWindows::unload() {
    if (!m_pluginName.isEmpty()) {
        callScripting(m_bus, QStringLiteral("/Scripting"), QStringLiteral("org.kde.kwin.Scripting"),
                      QStringLiteral("unloadScript"), {m_pluginName});
    }
}

void KWinWindows::received(std::optional<CompositorWindows::Window> window) {
    {
        std::lock_guard guard(m_lock);
        m_report = std::move(window);
        m_hasReport = true;
    }
    m_reported.notify_all();
}

void KWinWindows::kwinGone() {
    std::lock_guard guard(m_lock);
    m_state = State::failed;
    m_report.reset();
}

#include "KWinWindows.moc"
