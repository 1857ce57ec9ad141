#include "NubraPlatform/linux/DesktopEntryNames.h"
#include "NubraPlatform/linux/ProcTreelessApplications.h"
#include "TestSupport/FileMode.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

#include <memory>

using Kind = TreelessApp::Kind;

// A process table in a temporary folder, laid out like /proc, over installed programs in the same folder.
class LinuxTreelessTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_root;
    std::unique_ptr<DesktopEntryNames> m_names;
    std::unique_ptr<ProcTreelessApplications> m_apps;

    QString write(const QString& relativePath, const QByteArray& content = {}) {
        return writeFileUnder(m_root.path(), relativePath, content);
    }

    void link(const QString& target, const QString& relativePath) {
        if (!QFile::link(target, m_root.filePath(relativePath)))
            qFatal("cannot link %s", qPrintable(relativePath));
    }

    // One process: its executable (a path below the folder, " (deleted)" kept), its arguments after the
    // executable, its environment and its real user.
    void process(int id, const QString& program, const QByteArrayList& arguments,
                 const QByteArrayList& environment = {"HOME=/home/me"}, uint user = ::getuid()) {
        const QString dir = QStringLiteral("proc/%1/").arg(id);
        QDir().mkpath(m_root.filePath(dir));
        link(m_root.filePath(program), dir + u"exe");
        link(QStringLiteral("/"), dir + u"root");
        write(dir + u"cmdline", (QByteArrayList{QFile::encodeName(program)} + arguments).join('\0') + '\0');
        write(dir + u"environ", environment.join('\0') + '\0');
        write(dir + u"status", "Name:\tx\nUmask:\t0022\nUid:\t" + QByteArray::number(user) + "\t" +
                                   QByteArray::number(user) + "\t0\t0\nGid:\t0\t0\t0\t0\n");
    }

private slots:
    void initTestCase() {
        QVERIFY(m_root.isValid());
        write(u"opt/google/chrome/chrome"_qs);
        write(u"opt/google/chrome/resources.pak"_qs);
        write(u"opt/google/chrome/chrome_crashpad_handler"_qs);
        write(u"usr/lib/chromium/chromium"_qs);
        write(u"opt/thorium/thorium"_qs);
        write(u"opt/thorium/chrome_100_percent.pak"_qs);
        // An Electron bundle has Chromium's packs too.
        write(u"usr/share/code/code"_qs);
        write(u"usr/share/code/resources.pak"_qs);
        write(u"usr/share/code/resources/app/package.json"_qs);
        write(u"usr/lib/signal/signal-desktop"_qs);
        write(u"usr/lib/signal/resources/app.asar"_qs);
        write(u"usr/lib/electron/electron"_qs);
        write(u"usr/bin/bash"_qs);
        write(u"applications/code.desktop"_qs,
              "[Desktop Entry]\nType=Application\nName=Visual Studio Code\nStartupWMClass=Code\n");

        process(100, u"opt/google/chrome/chrome"_qs, {"--restore-last-session"});
        process(101, u"opt/google/chrome/chrome"_qs, {"--type=renderer", "--lang=en"});
        process(102, u"opt/google/chrome/chrome"_qs, {});
        // Children rewrite their command line into one string.
        write(u"proc/102/cmdline"_qs, "/opt/google/chrome/chrome --type=gpu-process --field-trial-handle=1");
        process(103, u"opt/google/chrome/chrome_crashpad_handler"_qs, {"--monitor-self"});
        process(104, u"usr/lib/chromium/chromium (deleted)"_qs, {}); // upgraded while it runs
        process(105, u"opt/google/chrome/chrome"_qs, {"--force-renderer-accessibility"});
        process(106, u"usr/share/code/code"_qs, {}, {"ACCESSIBILITY_ENABLED=1"});
        process(107, u"usr/share/code/code"_qs, {"--unity-launch"});
        process(108, u"usr/lib/signal/signal-desktop"_qs, {}, {"HOME=/home/me"}, ::getuid() + 1);
        process(109, u"usr/lib/signal/signal-desktop"_qs, {}, {"HOME=/x", "ACCESSIBILITY_ENABLED=0"});
        process(110, u"opt/thorium/thorium"_qs, {"--force-renderer-accessibility=basic"});
        process(111, u"usr/lib/electron/electron"_qs, {"/usr/lib/app.asar"});
        process(112, u"usr/bin/bash"_qs, {});
        process(113, u"opt/google/chrome/chrome"_qs, {"--user-data-dir=/tmp/p"}); // a second profile
        process(115, u"opt/thorium/thorium"_qs, {});
        QDir().mkpath(m_root.filePath(u"proc/114"_qs)); // ended while read
        QDir().mkpath(m_root.filePath(u"proc/sys"_qs));

        m_names = std::make_unique<DesktopEntryNames>(QStringList{m_root.filePath(u"applications"_qs)});
        m_apps = std::make_unique<ProcTreelessApplications>(*m_names, m_root.filePath(u"proc"_qs));
        // Desktop entries are indexed on a worker.
        QTRY_COMPARE(m_names->displayName({{}, u"code"_qs, {}}, {}), u"Visual Studio Code"_qs);
    }

    // Main processes without their tree, one per name; children, helpers, other users' processes and
    // those started with the flag or the variable are left out.
    void runningApplications() {
        QCOMPARE(m_apps->running(), (QList<TreelessApp>{{u"Google Chrome"_qs, Kind::chromiumBrowser, 100},
                                                        {u"Chromium"_qs, Kind::chromiumBrowser, 104},
                                                        {u"Visual Studio Code"_qs, Kind::electron, 107},
                                                        {u"Signal Desktop"_qs, Kind::electron, 109},
                                                        {u"Electron"_qs, Kind::electron, 111},
                                                        {u"Thorium"_qs, Kind::chromiumBrowser, 115}}));
    }

    void applicationByProcess_data() {
        QTest::addColumn<qint64>("processId");
        QTest::addColumn<bool>("treeless");
        QTest::newRow("browser") << qint64(100) << true;
        QTest::newRow("renderer") << qint64(101) << false;
        QTest::newRow("rewritten child") << qint64(102) << false;
        QTest::newRow("crash reporter") << qint64(103) << false;
        QTest::newRow("flag") << qint64(105) << false;
        QTest::newRow("flag with a value") << qint64(110) << false;
        QTest::newRow("variable") << qint64(106) << false;
        QTest::newRow("another user") << qint64(108) << false;
        QTest::newRow("other program") << qint64(112) << false;
        QTest::newRow("second profile") << qint64(113) << true;
        QTest::newRow("ended") << qint64(114) << false;
        QTest::newRow("absent") << qint64(999) << false;
    }
    void applicationByProcess() {
        QFETCH(qint64, processId);
        QFETCH(bool, treeless);
        const std::optional<TreelessApp> app = m_apps->application(processId);
        QCOMPARE(app.has_value(), treeless);
        if (app)
            QCOMPARE(app->processId, processId);
    }
};

QTEST_APPLESS_MAIN(LinuxTreelessTest)
#include "tst_linuxtreeless.moc"
