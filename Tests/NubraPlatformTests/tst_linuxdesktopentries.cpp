#include "NubraPlatform/linux/DesktopEntryNames.h"
#include "TestSupport/FileMode.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/time.h>

#include <memory>

class LinuxDesktopEntriesTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_root;
    std::unique_ptr<DesktopEntryNames> m_names;

    QString write(const QString& relativePath, const QByteArray& content) {
        return writeFileUnder(m_root.path(), relativePath, content);
    }

    QString nameFor(const QString& wmClass, const QString& locale = {}) {
        return m_names->displayName({{}, wmClass, wmClass.toLower()}, {locale});
    }

private slots:
    void initTestCase() {
        QVERIFY(m_root.isValid());
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_root.filePath(u"home"_qs)));
        qputenv("XDG_DATA_DIRS",
                QFile::encodeName(m_root.filePath(u"sys"_qs) + u':' + m_root.filePath(u"sys2"_qs)));
        write(u"sys/applications/org.xfce.mousepad.desktop"_qs,
              "# comment\n[Desktop Entry]\nType=Application\nName=Mousepad\n"
              "Name[zh_CN]=Mousepad 文本编辑器\nExec=mousepad\n\n"
              "[Desktop Action preferences]\nName=Mousepad Preferences\n");
        write(u"sys/applications/firefox-esr.desktop"_qs,
              "[Desktop Entry]\nType=Application\nName = Firefox ESR\nName[zh]=火狐\n");
        write(u"sys/applications/vscode.desktop"_qs,
              "[Desktop Entry]\nType=Application\nName=Visual Studio Code\nStartupWMClass=Code\n");
        write(u"sys/applications/kde/okular.desktop"_qs, "[Desktop Entry]\nType=Application\nName=Okular\n");
        write(u"sys/applications/gimp.desktop"_qs, "[Desktop Entry]\nType=Application\nName=GIMP\n");
        write(u"sys2/applications/editor.desktop"_qs,
              "[Desktop Entry]\nType=Application\nName=System Editor\n");
        write(u"sys/applications/big.desktop"_qs, "[Desktop Entry]\nType=Application\nName=Big\n#" +
                                                      QByteArray(DesktopEntryNames::maxEntryBytes, 'x') +
                                                      '\n');
        // The user's folder overrides and hides entries of the system's.
        write(u"home/applications/editor.desktop"_qs,
              "[Desktop Entry]\nType=Application\nName=My\\sEditor\n");
        write(u"home/applications/gimp.desktop"_qs, "[Desktop Entry]\nType=Application\nHidden=true\n");
        write(u"home/flatpak/exports/share/applications/org.gnome.Maps.desktop"_qs,
              "[Desktop Entry]\nType=Application\nName=Maps\nName[zh_CN]=地图\n");

        m_names = std::make_unique<DesktopEntryNames>();
        // Indexing runs on a worker; lookups answer empty until it is done.
        QTRY_COMPARE(nameFor(u"firefox-esr"_qs), u"Firefox ESR"_qs);
    }

    void namesByWindowHints_data() {
        QTest::addColumn<QString>("applicationId");
        QTest::addColumn<QString>("wmClass");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("expected");
        const QString none;
        QTest::newRow("application id")
            << u"org.xfce.mousepad"_qs << u"Mousepad"_qs << none << u"Mousepad"_qs;
        QTest::newRow("localized") << u"org.xfce.mousepad"_qs << u"Mousepad"_qs << u"zh_CN"_qs
                                   << u"Mousepad 文本编辑器"_qs;
        QTest::newRow("language only") << none << u"Firefox-esr"_qs << u"zh_TW"_qs << u"火狐"_qs;
        QTest::newRow("unlisted locale") << none << u"firefox-esr"_qs << u"de_DE"_qs << u"Firefox ESR"_qs;
        QTest::newRow("StartupWMClass") << none << u"code"_qs << none << u"Visual Studio Code"_qs;
        QTest::newRow("id from a subfolder") << none << u"kde-okular"_qs << none << u"Okular"_qs;
        QTest::newRow("user entry wins") << none << u"editor"_qs << none << u"My Editor"_qs;
        QTest::newRow("hidden by the user") << none << u"gimp"_qs << none << none;
        QTest::newRow("flatpak export") << none << u"org.gnome.Maps"_qs << u"zh_CN.UTF-8"_qs << u"地图"_qs;
        QTest::newRow("last part of a reverse-DNS id") << u"mousepad"_qs << u"mousepad"_qs << none << u"Mousepad"_qs;
        QTest::newRow("no entry") << none << u"XTerm"_qs << none << none;
        QTest::newRow("oversized entry") << none << u"big"_qs << none << none;
    }

    void namesByWindowHints() {
        QFETCH(QString, applicationId);
        QFETCH(QString, wmClass);
        QFETCH(QString, locale);
        QFETCH(QString, expected);
        QCOMPARE(m_names->displayName({applicationId, wmClass, wmClass.toLower()}, {locale}), expected);
    }

    void entryInstalledLaterIsFound() {
        write(u"sys/applications/xterm.desktop"_qs, "[Desktop Entry]\nType=Application\nName=XTerm\n");
        // Move the folder's time well away from the first scan's, whatever the file system's resolution.
        timeval times[2] = {{1000000000, 0}, {1000000000, 0}};
        QCOMPARE(::utimes(QFile::encodeName(m_root.filePath(u"sys/applications"_qs)).constData(), times), 0);
        QTRY_COMPARE(nameFor(u"XTerm"_qs), u"XTerm"_qs);
        QCOMPARE(nameFor(u"Firefox-esr"_qs), u"Firefox ESR"_qs);
    }
};

QTEST_APPLESS_MAIN(LinuxDesktopEntriesTest)
#include "tst_linuxdesktopentries.moc"
