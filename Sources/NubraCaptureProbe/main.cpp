// nubra-capture-probe: runs capture on the real desktop and prints each capture as one JSON line on
// standard output, for scripted and manual checks.
//
//   nubra-capture-probe [--trigger onSelection|optionSelection|doubleClick|hotkey] [--radius N]
//                       [--hold option|command] [--report-stalls]
//   nubra-capture-probe --diagnose
//
// With --report-stalls the probe also watches its own main thread, the one that runs Nubra's interface,
// and prints {"event":"stall","ms":N} whenever it could not run for more than 20 ms.
//
// "ms" is the capture's own time, from the end of the wait for the selection to settle to the
// snapshot; "at" the moment it was printed on the system's monotonic clock (CLOCK_MONOTONIC, the one
// Python's time.monotonic() reads), so that a script can place the settle moment beside what it saw.

#include "NubraApp/Capture/BubbleHost.h"
#include "NubraApp/Capture/CaptureGate.h"
#include "NubraApp/Capture/CardHost.h"
#include "NubraApp/Capture/HotkeyManager.h"
#include "NubraApp/Capture/SelectionMonitor.h"
#include "NubraCore/Capture/SelectionGate.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraPlatform/FrontApplications.h"
#include "NubraPlatform/PlatformDesktop.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThreadPool>
#include <QTimer>

#include <chrono>
#include <cstdio>

namespace {

// No panel: the probe reports captures itself; the bubble only has to remember that it is shown.
class InvisibleBubble final : public BubbleHost {
public:
    void showAt(const QPointF&, std::function<void()>) override { m_visible = true; }
    void hide() override { m_visible = false; }
    bool isVisible() const override { return m_visible; }
    std::optional<quint64> windowId() const override { return std::nullopt; }

private:
    bool m_visible = false;
};

class NoCard final : public CardHost {
public:
    void close() override {}
    bool isVisible() const override { return false; }
    std::optional<quint64> windowId() const override { return std::nullopt; }
};

void printLine(const QJsonObject& object) {
    std::fputs(QJsonDocument(object).toJson(QJsonDocument::Compact).constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    const DesktopSession session = PlatformDesktop::prepareProcess();
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption triggerOption(QStringLiteral("trigger"), QStringLiteral("Trigger mode."),
                                           QStringLiteral("mode"), QStringLiteral("onSelection"));
    const QCommandLineOption radiusOption(QStringLiteral("radius"), QStringLiteral("Context radius."),
                                          QStringLiteral("units"), QStringLiteral("200"));
    const QCommandLineOption holdOption(
        QStringLiteral("hold"),
        QStringLiteral("Key optionSelection waits for: option (Alt) or command (Super)."),
        QStringLiteral("key"), QStringLiteral("option"));
    const QCommandLineOption diagnoseOption(QStringLiteral("diagnose"),
                                            QStringLiteral("Print the diagnosis."));
    const QCommandLineOption stallsOption(QStringLiteral("report-stalls"),
                                          QStringLiteral("Report every stall of the main thread."));
    parser.addOptions({triggerOption, radiusOption, holdOption, diagnoseOption, stallsOption});
    parser.process(app);

    const std::optional<TriggerMode> mode = fromRawValue<TriggerMode>(parser.value(triggerOption));
    bool radiusOk = false;
    const int radius = parser.value(radiusOption).toInt(&radiusOk);
    const std::optional<OptionModifier> hold = fromRawValue<OptionModifier>(parser.value(holdOption));
    if (!mode || !radiusOk || radius < 0 || !hold) {
        std::fputs(
            "nubra-capture-probe: --trigger takes onSelection, optionSelection, doubleClick or hotkey; "
            "--radius a number of 0 or more; --hold option or command\n",
            stderr);
        return 2;
    }

    const std::unique_ptr<PlatformDesktop> platform = PlatformDesktop::create(session);
    const Desktop desktop = platform->desktop();
    SelectionService service(desktop);
    if (parser.isSet(diagnoseOption)) {
        std::fputs(service.diagnose().toUtf8().constData(), stdout);
        std::fputc('\n', stdout);
        return 0;
    }

    InvisibleBubble bubble;
    NoCard card;
    SelectionMonitor monitor(desktop, service, bubble, card);
    monitor.setOptionModifier(*hold);
    HotkeyManager hotkeys(desktop.hotkeys);
    hotkeys.onHotkey = [&monitor]() { monitor.triggerFromHotkey(); };
    if (*mode == TriggerMode::hotkey)
        hotkeys.registerCombo(HotkeyCombo::load(InMemoryDefaults()));

    monitor.setCaptureObserver([&desktop](const CaptureOutcome& outcome, qint64 latencyMs) {
        const SelectionSnapshot& s = outcome.snapshot;
        const std::optional<FrontApp> front = desktop.frontApplications.frontmost();
        printLine(
            {{QStringLiteral("text"), s.selectedText},
             {QStringLiteral("before"), s.before},
             {QStringLiteral("after"), s.after},
             {QStringLiteral("app"), s.sourceApp},
             {QStringLiteral("identifier"), front && front->identifier ? *front->identifier : QString()},
             {QStringLiteral("bounds"), QJsonObject{{QStringLiteral("x"), s.bounds.x()},
                                                    {QStringLiteral("y"), s.bounds.y()},
                                                    {QStringLiteral("width"), s.bounds.width()},
                                                    {QStringLiteral("height"), s.bounds.height()}}},
             {QStringLiteral("path"), capturePathName(outcome.path)},
             {QStringLiteral("placed"), outcome.placed},
             {QStringLiteral("ms"), latencyMs},
             {QStringLiteral("at"), double(std::chrono::duration_cast<std::chrono::microseconds>(
                                               std::chrono::steady_clock::now().time_since_epoch())
                                               .count()) /
                                        1000.0}});
    });
    const QSet<QString> excluded = SelectionGate::defaultExcludedApps();
    monitor.start(*mode, radius,
                  CaptureGate::standard([]() { return false; }, [excluded]() { return excluded; },
                                        desktop.frontApplications),
                  [](const SelectionSnapshot&) {});
    // A heartbeat every 5 ms: a longer gap is time the main thread spent blocked.
    QTimer heartbeat;
    QElapsedTimer sinceBeat;
    if (parser.isSet(stallsOption)) {
        heartbeat.setTimerType(Qt::PreciseTimer);
        QObject::connect(&heartbeat, &QTimer::timeout, [&sinceBeat]() {
            const qint64 stall = sinceBeat.restart() - 5;
            if (stall > 20)
                printLine(
                    {{QStringLiteral("event"), QStringLiteral("stall")}, {QStringLiteral("ms"), stall}});
        });
        sinceBeat.start();
        heartbeat.start(5);
    }
    printLine(
        {{QStringLiteral("event"), QStringLiteral("ready")},
         {QStringLiteral("trusted"), desktop.accessibility.isTrusted()},
         {QStringLiteral("capabilities"), QJsonArray::fromStringList(platform->capabilities().report())},
         {QStringLiteral("hotkey"),
          hotkeys.registeredCombo() ? hotkeys.registeredCombo()->display() : QString()}});
    const int status = app.exec();
    // A capture still reading on the pool uses the desktop and the service above: let it end first.
    QThreadPool::globalInstance()->waitForDone();
    return status;
}
