#include "AppTestKit.h"
#include "NubraApp/Settings/LaunchAtLogin.h"
#include "NubraApp/Settings/SettingsView.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDir>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTcpServer>
#include <QWindow>

#include <signal.h>

namespace {

// The kit with an autostart folder of its own.
struct Kit : AppTestKit {
    explicit Kit(const QUrl& service = QUrl(u"http://127.0.0.1:9"_qs)) : AppTestKit(service) {
        setConfigHome(u"config"_qs);
    }
    ~Kit() { qputenv("XDG_CONFIG_HOME", previousConfigHome); }

    void setConfigHome(const QString& name) { qputenv("XDG_CONFIG_HOME", dir.filePath(name).toUtf8()); }
    QString entryPath() const { return dir.filePath(u"config/autostart/app.nubra.Nubra.desktop"_qs); }
    std::optional<FakeGlobalHotkeys::HotKey> hotKey() const { return fake.hotkeys.onlyHotKey(); }
    // The hot key as the application follows the trigger mode.
    void followTriggerModeLikeTheApplication() {
        QObject::connect(&settings(), &AppSettings::triggerModeChanged, &settings(),
                         [this] { hotkeys.followTriggerMode(settings().triggerMode(), defaults); });
    }

    QByteArray previousConfigHome = qgetenv("XDG_CONFIG_HOME");
};

void choose(const QWidget& view, const char* picker, const QString& text) {
    auto* box = child<QComboBox>(view, picker);
    const int index = box->findText(text);
    QVERIFY2(index >= 0, qPrintable(text));
    box->setCurrentIndex(index);
}

QString hotkeyText(const QWidget& view) {
    return child<QLabel>(view, "hotkeyText")->text();
}

QString shortcutStatus(const QWidget& view) {
    return child<QLabel>(view, "desktopShortcutStatus")->text();
}

void press(const QWidget& view, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QTest::keyClick(view.window()->windowHandle(), key, modifiers);
}

} // namespace

class SettingsViewTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { L10n::setOverride(u"en"_qs); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    void onlyTheTriggerAndRecordingSwitchSaveAtOnce() {
        Kit kit;
        AppSettings& settings = kit.settings();
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        QCOMPARE(view.currentTab(), SettingsTab::general);

        choose(view, "lengthPicker", u"Detailed"_qs);
        click(view, "pauseToggle");
        click(view, "autoHideToggle");
        choose(view, "historyLimitPicker", u"500"_qs);
        QCOMPARE(settings.length(), GlossLength::detailed);
        QVERIFY(settings.paused());
        QVERIFY(!settings.autoHide());
        QCOMPARE(settings.historyLimit(), 500);
        QVERIFY(!kit.defaults.contains(u"length"_qs));
        QVERIFY(!kit.defaults.contains(u"autoHide"_qs));

        // The trigger saves everything stored, the changes above included.
        choose(view, "triggerPicker", u"Double-click"_qs);
        QCOMPARE(settings.triggerMode(), TriggerMode::doubleClick);
        QCOMPARE(kit.defaults.string(u"trigger"_qs), u"doubleClick"_qs);
        QCOMPARE(kit.defaults.string(u"length"_qs), u"detailed"_qs);
        QCOMPARE(kit.defaults.boolean(u"autoHide"_qs), false);

        child<QTabWidget>(view, "settingsTabs")->setCurrentIndex(int(SettingsTab::privacy));
        click(view, "recordHistoryToggle");
        QVERIFY(!settings.recordHistory());
        QCOMPARE(kit.defaults.boolean(u"recordHistory"_qs), false);

        // Changes made elsewhere (the tray menu) show at once.
        settings.setStyle(GlossStyle::coding);
        settings.setPaused(false);
        QCOMPARE(child<QComboBox>(view, "stylePicker")->currentText(), u"Coding"_qs);
        QVERIFY(!child<QCheckBox>(view, "pauseToggle")->isChecked());

        // The translation note is there while the output language is fixed.
        child<QTabWidget>(view, "settingsTabs")->setCurrentIndex(int(SettingsTab::gloss));
        auto* note = child<QLabel>(view, "translationNote");
        QVERIFY(!note->isVisibleTo(&view));
        choose(view, "outputLanguagePicker", u"Chinese"_qs);
        QCOMPARE(settings.outputLang(), u"zh"_qs);
        QVERIFY(note->isVisibleTo(&view));
        choose(view, "outputLanguagePicker", u"Match input"_qs);
        QCOMPARE(settings.outputLang(), u"auto"_qs);
        QVERIFY(!note->isVisibleTo(&view));
        settings.setOutputLang(u"ja"_qs);
        QCOMPARE(child<QComboBox>(view, "outputLanguagePicker")->currentText(), u"ja"_qs);
        QVERIFY(note->isVisibleTo(&view));
    }

    void hotkeyIsShownRegisteredAndRecorded() {
        Kit kit;
        kit.followTriggerModeLikeTheApplication();
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        auto* row = child<QWidget>(view, "hotkeyRow");
        QVERIFY(!row->isVisibleTo(&view));
        choose(view, "triggerPicker", u"Hotkey"_qs);
        QVERIFY(row->isVisibleTo(&view));
        QVERIFY(!child<QWidget>(view, "desktopShortcutPanel")->isVisibleTo(&view)); // grabbed here
        QCOMPARE(hotkeyText(view), u"Alt+G"_qs);
        QVERIFY(kit.hotKey() && kit.hotKey()->keyCode == 5 && kit.hotKey()->modifiers == 0x800);

        // While recording, the hot key is off so that it cannot take the keys; Escape brings it back.
        click(view, "recordButton");
        QCOMPARE(hotkeyText(view), u"Press keys… (Esc to cancel)"_qs);
        QCOMPARE(kit.fake.hotkeys.hotKeys(), 0);
        // The modifiers held so far show as they are pressed and go as they are let go.
        QTest::keyPress(view.window()->windowHandle(), Qt::Key_Control);
        QTest::keyPress(view.window()->windowHandle(), Qt::Key_Shift, Qt::ControlModifier);
        QCOMPARE(hotkeyText(view), u"Ctrl+Shift+…"_qs);
        QTest::keyRelease(view.window()->windowHandle(), Qt::Key_Shift, Qt::ControlModifier);
        QCOMPARE(hotkeyText(view), u"Press keys… (Esc to cancel)"_qs);
        press(view, Qt::Key_G);                                       // no modifier
        press(view, Qt::Key_A, Qt::AltModifier);                      // key code 0
        press(view, Qt::Key_1, Qt::AltModifier | Qt::KeypadModifier); // another modifier
        press(view, Qt::Key_F5, Qt::AltModifier);                     // no key for a hot key
        QCOMPARE(hotkeyText(view), u"Press keys… (Esc to cancel)"_qs);
        press(view, Qt::Key_Escape, Qt::AltModifier);
        QCOMPARE(hotkeyText(view), u"Alt+G"_qs);
        QVERIFY(!kit.defaults.contains(u"hotkey.keyCode"_qs));
        QVERIFY(kit.hotKey() && kit.hotKey()->keyCode == 5);

        // Accepted: saved and registered at once.
        click(view, "recordButton");
        press(view, Qt::Key_Space, Qt::AltModifier);
        QCOMPARE(hotkeyText(view), u"Alt+Space"_qs);
        QCOMPARE(kit.defaults.integer(u"hotkey.keyCode"_qs), 49);
        QCOMPARE(kit.defaults.integer(u"hotkey.modifiers"_qs), 0x80000);
        QVERIFY(kit.hotKey() && kit.hotKey()->keyCode == 49 && kit.hotKey()->modifiers == 0x800);

        // Shift makes a digit a symbol before Qt reports it; the digit key is what is recorded.
        click(view, "recordButton");
        press(view, Qt::Key_Exclam, Qt::ShiftModifier | Qt::ControlModifier);
        QCOMPARE(hotkeyText(view), u"Ctrl+Shift+1"_qs);
        QVERIFY(kit.hotKey() && kit.hotKey()->keyCode == 18 && kit.hotKey()->modifiers == 0x1200);

        click(view, "resetButton");
        QCOMPARE(hotkeyText(view), u"Alt+G"_qs);
        QCOMPARE(kit.defaults.integer(u"hotkey.keyCode"_qs), 5);
        QVERIFY(kit.hotKey() && kit.hotKey()->keyCode == 5);

        // Leaving hotkey mode ends a recording, hides the row, and the hot key stays off.
        click(view, "recordButton");
        choose(view, "triggerPicker", u"On selection"_qs);
        QVERIFY(!row->isVisibleTo(&view));
        press(view, Qt::Key_K, Qt::MetaModifier);
        QCOMPARE(kit.fake.hotkeys.hotKeys(), 0);
        QCOMPARE(kit.defaults.integer(u"hotkey.keyCode"_qs), 5);

        // Closing the window ends a recording too, and gives the hot key back.
        choose(view, "triggerPicker", u"Hotkey"_qs);
        click(view, "recordButton");
        view.close();
        QVERIFY(kit.hotKey() && kit.hotKey()->keyCode == 5);
        view.show();
        QCOMPARE(hotkeyText(view), u"Alt+G"_qs);
    }

    // The key for text on the screen is there in every trigger mode, none until recorded, and a key of
    // its own beside the lookup's.
    void screenTextHotkeyIsOptionalAndSeparate() {
        Kit kit;
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QVERIFY(child<QWidget>(view, "screenTextHotkeyRow")->isVisibleTo(&view));
        const auto text = [&view] { return child<QLabel>(view, "screenTextHotkeyText")->text(); };
        QCOMPARE(text(), u"None"_qs);
        QCOMPARE(kit.fake.hotkeys.hotKeys(), 0);

        // The lookup's key (Alt+G unless recorded) cannot be this one too: the recording goes on.
        click(view, "screenTextHotkeyRecordButton");
        press(view, Qt::Key_G, Qt::AltModifier);
        auto* refusal = child<QLabel>(view, "screenTextHotkeyRefusal");
        QVERIFY(refusal->isVisibleTo(&view));
        QCOMPARE(refusal->text(), u"Alt+G is already the other hot key. Press another combination."_qs);
        QVERIFY(!kit.defaults.contains(u"ocrHotkey.keyCode"_qs));
        press(view, Qt::Key_O, Qt::ControlModifier | Qt::AltModifier);
        QVERIFY(!refusal->isVisibleTo(&view));
        QCOMPARE(text(), u"Ctrl+Alt+O"_qs);
        QCOMPARE(kit.defaults.integer(u"ocrHotkey.keyCode"_qs), 31);
        QVERIFY(!kit.defaults.contains(u"hotkey.keyCode"_qs));
        const auto key = kit.hotKey();
        QVERIFY(key && key->keyCode == 31 && key->id == HotkeyManager::screenTextHotKeyId);

        click(view, "screenTextHotkeyClearButton");
        QCOMPARE(text(), u"None"_qs);
        QVERIFY(!kit.defaults.contains(u"ocrHotkey.keyCode"_qs));
        QCOMPARE(kit.fake.hotkeys.hotKeys(), 0);
    }

    // Option selection is named by the key it waits for, chosen beside it and saved at once.
    void optionSelectionNamesTheKeyToHold() {
        Kit kit;
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        auto* trigger = child<QComboBox>(view, "triggerPicker");
        auto* key = child<QComboBox>(view, "optionModifierPicker");
        QVERIFY(!key->isVisibleTo(&view));
        choose(view, "triggerPicker", u"Alt + Selection"_qs);
        QVERIFY(key->isVisibleTo(&view));
        QCOMPARE(key->currentText(), u"Alt"_qs);

        choose(view, "optionModifierPicker", u"Super"_qs);
        QCOMPARE(kit.settings().optionModifier(), OptionModifier::command);
        QCOMPARE(kit.defaults.string(u"optionModifier"_qs), u"command"_qs);
        QCOMPARE(trigger->currentText(), u"Super + Selection"_qs);

        kit.settings().setOptionModifier(OptionModifier::option);
        QCOMPARE(key->currentText(), u"Alt"_qs);
        QCOMPARE(trigger->currentText(), u"Alt + Selection"_qs);
        choose(view, "triggerPicker", u"Hotkey"_qs);
        QVERIFY(!key->isVisibleTo(&view));
    }

    void desktopShortcutIsSetUpAndFollowsTheHotkey() {
        Kit kit;
        kit.fake.shortcuts.kind = DesktopShortcuts::Setup::automatic;
        kit.settings().setTriggerMode(TriggerMode::hotkey);
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        auto* add = child<QPushButton>(view, "addShortcutButton");
        auto* remove = child<QPushButton>(view, "removeShortcutButton");
        QCOMPARE(shortcutStatus(view), u"GNOME does not know this shortcut yet."_qs);
        QVERIFY(add->isVisibleTo(&view) && !remove->isVisibleTo(&view));

        click(view, "addShortcutButton");
        QCOMPARE(kit.fake.shortcuts.bound, HotkeyCombo::defaultCombo());
        QCOMPARE(shortcutStatus(view), u"Set up in GNOME settings: Alt+G"_qs);
        QVERIFY(!add->isVisibleTo(&view) && remove->isVisibleTo(&view));

        // A binding that is set up moves to a new combination.
        click(view, "recordButton");
        press(view, Qt::Key_Space, Qt::AltModifier);
        QCOMPARE(kit.fake.shortcuts.bound, (HotkeyCombo{49, HotkeyCombo::optionFlag}));
        QCOMPARE(shortcutStatus(view), u"Set up in GNOME settings: Alt+Space"_qs);

        click(view, "removeShortcutButton");
        QVERIFY(!kit.fake.shortcuts.bound);
        QVERIFY(add->isVisibleTo(&view));

        // A combination the desktop uses is reported and not taken.
        kit.fake.shortcuts.takenBy = u"Switch applications"_qs;
        click(view, "addShortcutButton");
        QVERIFY(!kit.fake.shortcuts.bound);
        QCOMPARE(
            shortcutStatus(view),
            u"Alt+Space is already used by GNOME for “Switch applications”. Record another combination."_qs);

        kit.fake.shortcuts.failing = true;
        click(view, "resetButton");
        QCOMPARE(shortcutStatus(view), u"Could not read or change the GNOME settings."_qs);
        QVERIFY(!add->isEnabled());
    }

    void desktopShortcutLineIsOfferedAndChecked() {
        Kit kit;
        kit.fake.shortcuts.kind = DesktopShortcuts::Setup::configLine;
        kit.fake.shortcuts.name = u"sway"_qs;
        kit.settings().setTriggerMode(TriggerMode::hotkey);
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        const QString line = kit.fake.shortcuts.configLine(HotkeyCombo::defaultCombo());
        QCOMPARE(child<QLineEdit>(view, "desktopShortcutLine")->text(), line);
        click(view, "copyLineButton");
        QCOMPARE(QGuiApplication::clipboard()->text(), line);
        QCOMPARE(shortcutStatus(view),
                 u"Not in the configuration sway has loaded: add the line, then reload sway."_qs);

        // The user adds the line; the window shown again asks sway afresh.
        kit.fake.shortcuts.bound = HotkeyCombo::defaultCombo();
        view.hide();
        view.show();
        QCOMPARE(shortcutStatus(view), u"Active in sway."_qs);
    }

    void launchAtLoginFollowsTheAutostartEntry() {
        Kit kit;
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        auto* toggle = child<QCheckBox>(view, "launchAtLoginToggle");
        kit.fake.tasks.drain();
        QVERIFY(!toggle->isChecked() && toggle->isEnabled());

        toggle->click();
        QVERIFY(!toggle->isEnabled()); // until the file work is done
        kit.fake.tasks.drain();
        QVERIFY(toggle->isChecked() && toggle->isEnabled());
        const QString program = QCoreApplication::applicationFilePath();
        QFile entry(kit.entryPath());
        QVERIFY(entry.open(QIODevice::ReadOnly));
        QCOMPARE(
            QString::fromUtf8(entry.readAll()),
            u"[Desktop Entry]\nType=Application\nName=Nubra\nIcon=app.nubra.Nubra\nExec=\"%1\"\nTryExec=%1\n"
            u"X-GNOME-Autostart-enabled=true\n"_qs.arg(program));
        entry.close();

        // A hidden entry does not count; the state is read again when the view is shown.
        QVERIFY(entry.open(QIODevice::Append) && entry.write("Hidden=true\n") > 0);
        entry.close();
        view.hide();
        view.show();
        kit.fake.tasks.drain();
        QVERIFY(!toggle->isChecked());

        toggle->click(); // rewritten, shown again
        kit.fake.tasks.drain();
        QVERIFY(toggle->isChecked());
        toggle->click();
        kit.fake.tasks.drain();
        QVERIFY(!toggle->isChecked() && !QFile::exists(kit.entryPath()));

        // Exec quotes the program as the desktop-entry format wants, and is read back the same way.
        const LaunchAtLogin odd(u"/opt/my apps/nu$bra\"%x"_qs);
        QVERIFY(odd.entryText().contains("Exec=\"/opt/my apps/nu\\\\$bra\\\\\"%%x\"\n"));
        QVERIFY(!odd.setEnabled(true));
        QVERIFY(odd.isEnabled());
        QVERIFY(!LaunchAtLogin(u"/opt/my apps/nubra"_qs).isEnabled());

        // A folder that cannot be made: logged, and the toggle stays off.
        kit.setConfigHome(u"blocked"_qs);
        QFile blocker(kit.dir.filePath(u"blocked/autostart"_qs));
        QVERIFY(QDir().mkpath(kit.dir.filePath(u"blocked"_qs)) && blocker.open(QIODevice::WriteOnly));
        blocker.close();
        toggle->click();
        kit.fake.tasks.drain();
        QVERIFY(!toggle->isChecked() && toggle->isEnabled());
        QCOMPARE(kit.log.messages().filter(u"launchAtLogin: true failed "_qs).size(), 1);
    }

    void accessibilityButtonFollowsTrust() {
        Kit kit;
        kit.fake.accessibility.trusted = false;
        SettingsView view(*kit.state, kit.services, std::nullopt);
        view.show();
        kit.fake.tasks.drain();
        auto* button = child<QPushButton>(view, "accessibilityButton");
        QCOMPARE(button->text(), u"Enable"_qs);

        button->click(); // the fake desktop grants it
        QCOMPARE(kit.fake.accessibility.settingsOpened, 1);
        kit.fake.tasks.drain();
        QCOMPARE(button->text(), u"Granted ✓"_qs);
        QVERIFY(!button->isEnabled());

        kit.fake.accessibility.trusted = false;
        kit.trust.refresh();
        kit.fake.tasks.drain();
        QCOMPARE(button->text(), u"Enable"_qs);
        QVERIFY(button->isEnabled());
    }

    void clearingTheHistoryReports() {
        Kit kit;
        HistoryRecord record;
        record.createdAt = QDateTime::currentDateTimeUtc();
        record.selectedText = u"word"_qs;
        kit.state->history().insert(record);
        SettingsView view(*kit.state, kit.services, SettingsTab::privacy);
        view.show();
        auto* message = child<QLabel>(view, "historyMessage");
        QVERIFY(!message->isVisibleTo(&view));

        click(view, "clearHistoryButton");
        QCOMPARE(kit.state->history().count(), 0);
        QVERIFY(message->isVisibleTo(&view));
        QCOMPARE(message->text(), u"History cleared."_qs);

        // A database that went bad under the store.
        QFile file(kit.dir.filePath(u"history.sqlite3"_qs));
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.write(QByteArray(int(file.size()), 'x')) > 0);
        file.close();
        click(view, "clearHistoryButton");
        QVERIFY2(message->text().startsWith(u"Clear failed: "_qs) && message->text().size() > 14,
                 qPrintable(message->text()));
    }

    // With the service on this machine silent and its user unit installed, the general tab offers to
    // start it; a failure says why, a start that works makes the offer go away.
    void offersToStartTheLocalService() {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        const quint16 port = probe.serverPort();
        probe.close();
        QTemporaryDir bin;
        const QString pidFile = bin.filePath(u"service.pid"_qs);
        QFile fake(bin.filePath(u"systemctl"_qs));
        QVERIFY(fake.open(QIODevice::WriteOnly));
        fake.write("#!/bin/sh\n"
                   "case \"$2\" in\n"
                   "show) echo loaded ;;\n"
                   "start) if [ -n \"$FAKE_START_FAILS\" ]; then echo 'Unit nubra-glossd.service failed.' "
                   ">&2; exit 1; fi\n"
                   "  python3 -m http.server \"$FAKE_PORT\" --bind 127.0.0.1 >/dev/null 2>&1 &\n"
                   "  echo $! > \"$FAKE_PID\" ;;\n"
                   "esac\n");
        fake.close();
        fake.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", bin.path().toUtf8() + ':' + path);
        qputenv("FAKE_PORT", QByteArray::number(port));
        qputenv("FAKE_PID", pidFile.toUtf8());
        qputenv("FAKE_START_FAILS", "1");
        const auto restore = qScopeGuard([&] {
            qputenv("PATH", path);
            QFile pid(pidFile);
            if (pid.open(QIODevice::ReadOnly))
                ::kill(pid.readAll().trimmed().toInt(), SIGTERM);
        });

        Kit kit(QUrl(u"http://127.0.0.1:%1"_qs.arg(port)));
        NubraWindows::install(&kit.services);
        NubraWindows::showSettings(*kit.state);
        QWidget* row = child<QWidget>(*NubraWindows::settingsWindow(), "glossServiceRow");
        QTRY_VERIFY_WITH_TIMEOUT(row->isVisible(), 5000);
        auto* message = child<QLabel>(*row, "glossServiceMessage");
        QVERIFY(message->text().contains(u"127.0.0.1:%1"_qs.arg(port)));

        click(*row, "startServiceButton");
        QTRY_COMPARE_WITH_TIMEOUT(
            message->text(), u"Could not start nubra-glossd: Unit nubra-glossd.service failed."_qs, 5000);
        qunsetenv("FAKE_START_FAILS");
        click(*row, "startServiceButton");
        QTRY_VERIFY_WITH_TIMEOUT(!row->isVisible(), 10000);
    }

    void windowIsMadeOnceAndKeepsItsTab() {
        Kit kit;
        NubraWindows::install(&kit.services);
        NubraWindows::showSettings(*kit.state, SettingsTab::privacy);
        QPointer<QWidget> window = NubraWindows::settingsWindow();
        QVERIFY(window && window->isVisible());
        auto* view = window->findChild<SettingsView*>();
        QCOMPARE(view->currentTab(), SettingsTab::privacy);
        QVERIFY(child<QWidget>(*view, "clearHistoryButton")->isVisible());

        NubraWindows::showSettings(*kit.state, SettingsTab::about);
        QCOMPARE(NubraWindows::settingsWindow(), window.data());
        QCOMPARE(view->currentTab(), SettingsTab::privacy);

        // Closed or minimised, it comes back as it was.
        window->close();
        window->showMinimized();
        NubraWindows::showSettings(*kit.state);
        QCOMPARE(NubraWindows::settingsWindow(), window.data());
        QVERIFY(window->isVisible() && !window->isMinimized());
        QCOMPARE(view->currentTab(), SettingsTab::privacy);

        // It goes with the services it uses.
        NubraWindows::install(nullptr);
        QVERIFY(!window);
    }
};

QTEST_MAIN(SettingsViewTest)
#include "tst_settingsview.moc"
