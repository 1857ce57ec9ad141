#include "AppTestKit.h"
#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/Shell/TrayMenu.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QApplication>
#include <QLibraryInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>

namespace {

const QString separator = QStringLiteral("---");

// What the menu shows, top to bottom: visible items, separators as "---".
QStringList visibleItems(const QMenu& menu) {
    QStringList items;
    for (const QAction* action : menu.actions())
        if (action->isVisible())
            items << (action->isSeparator() ? separator : action->text());
    return items;
}

// Every visible label, submenu titles and their items included.
QStringList allLabels(const QMenu& menu) {
    QStringList labels;
    for (const QAction* action : menu.actions()) {
        if (!action->isVisible() || action->isSeparator())
            continue;
        labels << action->text();
        if (action->menu())
            labels << allLabels(*action->menu());
    }
    return labels;
}

QMessageBox* openAlert(const QString& name) {
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (widget->objectName() == name && widget->isVisible())
            return qobject_cast<QMessageBox*>(widget);
    return nullptr;
}

} // namespace

class TrayMenuTest : public QObject {
    Q_OBJECT

    std::unique_ptr<AppTestKit> kit;

    void closeAlerts() {
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (qobject_cast<QMessageBox*>(widget))
                widget->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    // Opening the menu is what refreshes what only changes without a signal (language, debug switch).
    static void open(QMenu& menu) {
        menu.popup(QPoint(10, 10));
        menu.hide();
    }
    QAction* item(QMenu& menu, const char* name) {
        QAction* action = menu.findChild<QAction*>(QLatin1String(name));
        if (!action)
            qFatal("no menu item %s", name);
        return action;
    }

private slots:
    void init() {
        L10n::setOverride(QStringLiteral("en"));
        kit = std::make_unique<AppTestKit>();
    }
    void cleanup() {
        closeAlerts();
        kit.reset();
        L10n::setOverride(std::nullopt);
    }

    // The whole menu, as a D-Bus menu host reads it, is checked in ShellDesktopTests; here, what
    // changes with the permission phase.
    void itemsFollowThePermissionPhase() {
        TrayMenu menu(*kit->state, kit->desktop);
        const QString status = QStringLiteral("○ selection monitor not running");
        QCOMPARE(visibleItems(menu).first(3),
                 (QStringList{QStringLiteral("⚠️ Not activated — click to enable Accessibility"),
                              separator, status}));
        kit->settings().setPermissionPhase(PermissionPhase::needsRestart);
        QCOMPARE(visibleItems(menu).first(3),
                 (QStringList{QStringLiteral("⚠️ Restart to finish activation"), separator, status}));
        for (const PermissionPhase phase :
             {PermissionPhase::checking, PermissionPhase::active, PermissionPhase::done}) {
            kit->settings().setPermissionPhase(phase);
            QCOMPARE(visibleItems(menu).first(2), (QStringList{status, separator}));
        }
        menu.setMonitorRunning([] { return true; });
        QCOMPARE(visibleItems(menu).first(), QStringLiteral("● selection monitor running"));
    }

    void debugItemsFollowTheDefault() {
        TrayMenu menu(*kit->state, kit->desktop);
        const QStringList debugItems{QStringLiteral("Test capture (select text in another app first)…"),
                                     QStringLiteral("Permission / onboarding status…"),
                                     QStringLiteral("Diagnose capture environment…")};
        kit->defaults.setValue(QLatin1String(TrayMenu::debugMenuKey), true);
        open(menu);
        const QStringList shown = visibleItems(menu);
        const qsizetype history = shown.indexOf(QStringLiteral("History"));
        QCOMPARE(shown.mid(history + 1, 4), debugItems + QStringList{QStringLiteral("Check for Updates…")});

        kit->defaults.setValue(QLatin1String(TrayMenu::debugMenuKey), false);
        open(menu);
        for (const QString& debugItem : debugItems)
            QVERIFY(!visibleItems(menu).contains(debugItem));
    }

    // A choice checked and saved, pausing with its line, label, icon and tool tip: seen through the D-Bus
    // menu in ShellDesktopTests. Here what is not: the same choice is not saved again, pausing is not saved
    // at all, and a change made elsewhere shows without the menu being opened, as a D-Bus menu host reads it.
    void choicesAndPauseSaveOnlyWhatChanges() {
        TrayMenu menu(*kit->state, kit->desktop);
        item(menu, "medium")->trigger();
        QVERIFY(item(menu, "medium")->isChecked());
        item(menu, "pauseItem")->trigger();
        QVERIFY(kit->settings().paused());
        QVERIFY(!kit->defaults.contains(QStringLiteral("length")) &&
                !kit->defaults.contains(QStringLiteral("style")));
        item(menu, "pauseItem")->trigger();
        QVERIFY(!kit->settings().paused());

        kit->settings().setOutputLang(QStringLiteral("en"));
        QVERIFY(item(menu, "en")->isChecked());
        QVERIFY(!item(menu, "auto")->isChecked());
        kit->settings().setStyle(GlossStyle::coding);
        QVERIFY(item(menu, "coding")->isChecked());
    }

    void chineseLabelsEverywhere() {
        kit->defaults.setValue(QLatin1String(TrayMenu::debugMenuKey), true);
        kit->settings().setPaused(true);
        TrayMenu menu(*kit->state, kit->desktop);
        const QStringList english = allLabels(menu);

        L10n::setOverride(QStringLiteral("zh"));
        open(menu);
        const QStringList chinese = allLabels(menu);
        QCOMPARE(chinese.size(), english.size());
        for (qsizetype i = 0; i < chinese.size(); ++i)
            QVERIFY2(chinese[i] != english[i], qPrintable(english[i]));
    }

    void captureTestReportsOffTheMainThread() {
        kit->defaults.setValue(QLatin1String(TrayMenu::debugMenuKey), true);
        TrayMenu menu(*kit->state, kit->desktop);
        const QString text = QStringLiteral("The quick brown fox jumps over the lazy dog, twice over.");
        kit->fake.accessibility.focused = FakeElement::textArea(text, 0, text.size());

        item(menu, "captureTestItem")->trigger();
        item(menu, "captureTestItem")->trigger(); // while one runs, another is not started
        QCOMPARE(kit->fake.tasks.queued(), 1);
        QVERIFY(!openAlert(QStringLiteral("captureTestAlert")));
        kit->fake.tasks.drain();
        QCOMPARE(kit->fake.tasks.backgroundRuns(), 1);
        QMessageBox* alert = openAlert(QStringLiteral("captureTestAlert"));
        QVERIFY(alert);
        QCOMPARE(alert->windowTitle(), QStringLiteral("✓ Captured (56 chars)"));
        QCOMPARE(alert->informativeText(),
                 QStringLiteral("First 40 chars: The quick brown fox jumps over the lazy \n\nIf no bubble "
                                "appeared, take a screenshot and tell me where it should be."));
        closeAlerts();

        kit->fake.accessibility.focused.reset();
        item(menu, "captureTestItem")->trigger();
        kit->fake.tasks.drain();
        alert = openAlert(QStringLiteral("captureTestAlert"));
        QVERIFY(alert);
        QCOMPARE(alert->windowTitle(), QStringLiteral("✗ No selected text captured"));
        QVERIFY(alert->informativeText().startsWith(QStringLiteral("Accessibility: granted ✓\n")));
        closeAlerts();

        // The diagnosis ends with whether texts can be read aloud.
        Pronouncer pronouncer(QStringLiteral("no-such-engine"));
        Pronouncer::install(&pronouncer);
        pronouncer.prepare();
        QTRY_VERIFY(pronouncer.availability() == Pronouncer::Availability::unavailable);
        item(menu, "diagnoseItem")->trigger();
        QVERIFY(!openAlert(QStringLiteral("diagnosisAlert")));
        kit->fake.tasks.drain();
        alert = openAlert(QStringLiteral("diagnosisAlert"));
        QVERIFY(alert);
        QCOMPARE(alert->windowTitle(), QStringLiteral("Capture environment diagnosis"));
        QVERIFY(alert->informativeText().endsWith(QStringLiteral(
            "\n\nRead aloud: ✗ No speech engine is installed for Qt (qt6-speech-speechd-plugin).")));
        Pronouncer::install(nullptr);
    }

    void commandsReachTheirHooks() {
        TrayMenu menu(*kit->state, kit->desktop);
        QSignalSpy updates(&menu, &TrayMenu::checkForUpdatesRequested);
        QSignalSpy close(&menu, &TrayMenu::closeCardRequested);
        item(menu, "checkForUpdatesItem")->trigger();
        QCOMPARE(updates.size(), 1);
        item(menu, "closeCardItem")->trigger();
        QCOMPARE(close.size(), 1);

        // A download shows its progress with a way to stop it, and both go when it ends.
        QSignalSpy cancel(&menu, &TrayMenu::cancelActivityRequested);
        QVERIFY(!item(menu, "cancelActivityItem")->isVisible());
        menu.setActivity(QStringLiteral("Downloading Nubra 1.2.0… 42 %"));
        QVERIFY(visibleItems(menu).contains(QStringLiteral("Downloading Nubra 1.2.0… 42 %")));
        item(menu, "cancelActivityItem")->trigger();
        QCOMPARE(cancel.size(), 1);
        menu.setActivity(QString());
        QVERIFY(!item(menu, "cancelActivityItem")->isVisible());
        QVERIFY(!item(menu, "activityLine")->isVisible());
    }

    void linuxTextsNameNoMacPlaces() {
        const QStringList macPlaces{QStringLiteral("System Settings"), QStringLiteral("menu bar"),
                                    QStringLiteral("Safari"),          QStringLiteral("sign"),
                                    QStringLiteral("打开系统设置"),    QStringLiteral("菜单栏"),
                                    QStringLiteral("备忘录"),          QStringLiteral("签名")};
        for (const QString& language : {QStringLiteral("en"), QStringLiteral("zh")}) {
            L10n::setOverride(language);
            for (int id = 0; id <= int(PlatformText::welcomeIconLocation); ++id) {
                const QString linuxText =
                    PlatformTexts::text(PlatformText(id), DesktopPlatform::linuxDesktop);
                QVERIFY(!linuxText.isEmpty());
                QVERIFY(linuxText != PlatformTexts::text(PlatformText(id), DesktopPlatform::macOS));
                for (const QString& place : macPlaces)
                    QVERIFY2(!linuxText.contains(place), qPrintable(linuxText));
            }
        }
        QCOMPARE(PlatformTexts::text(PlatformText::openSettingsButton, DesktopPlatform::macOS),
                 QStringLiteral("打开系统设置"));
    }

    // Last: the translator stays installed for the rest of the process.
    void stockButtonsSpeakChineseWithQtTranslations() {
        L10n::setOverride(QStringLiteral("en"));
        QVERIFY(!PlatformTexts::installQtTranslations(*qApp));
        L10n::setOverride(QStringLiteral("zh"));
        if (!QFile::exists(QLibraryInfo::path(QLibraryInfo::TranslationsPath) +
                           QStringLiteral("/qtbase_zh_CN.qm")))
            QSKIP("Qt's translations are not installed");
        QVERIFY(PlatformTexts::installQtTranslations(*qApp));
        QMessageBox box;
        QCOMPARE(box.addButton(QMessageBox::Ok)->text(), QStringLiteral("确定"));
    }
};

QTEST_MAIN(TrayMenuTest)
#include "tst_traymenu.moc"
