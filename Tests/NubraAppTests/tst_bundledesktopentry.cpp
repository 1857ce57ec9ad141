#include "NubraApp/Shell/BundleDesktopEntry.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {

void writeFile(const QString& path, const QByteArray& bytes, QFile::Permissions permissions = {}) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    if (permissions)
        QVERIFY(file.setPermissions(permissions));
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class BundleDesktopEntryTest : public QObject {
    Q_OBJECT

private slots:
    // An unpacked bundle in a folder whose name needs quoting puts itself in the menu once, keeps an
    // entry that is already right, and repairs one that is not; nothing else writes an entry.
    void bundleAddsItselfToTheMenu() {
        QTemporaryDir root;
        const QString folder = root.filePath(u"my $apps/Nubra"_qs);
        QVERIFY(QDir().mkpath(folder + u"/bin"_qs));
        const auto executable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
        writeFile(folder + u"/bin/nubra"_qs, "#!/bin/sh\n", executable);
        writeFile(folder + u"/bin/nubra-glossd"_qs, "#!/bin/sh\n", executable);
        qputenv("XDG_DATA_HOME", root.filePath(u"data"_qs).toUtf8());
        const QString path = BundleDesktopEntry::entryPath();
        QCOMPARE(path, root.filePath(u"data/applications/app.nubra.Nubra.desktop"_qs));

        QCOMPARE(BundleDesktopEntry::refresh(Installation{}), BundleDesktopEntry::Outcome::notBundle);
        QVERIFY(!QFile::exists(path));

        const Installation bundle = Installation::of(folder + u"/bin/nubra"_qs);
        QCOMPARE(BundleDesktopEntry::refresh(bundle), BundleDesktopEntry::Outcome::written);
        const QString text = QString::fromUtf8(readFile(path));
        const QString program = u"\"%1/my \\\\$apps/Nubra/bin/nubra\""_qs.arg(root.path());
        QVERIFY2(text.contains(u"\nExec=" + program + u'\n'), qPrintable(text));
        QVERIFY(text.contains(u"\nExec=" + program + u" --history\n"));
        QVERIFY(
            text.contains(u"\nIcon=" + folder + u"/share/icons/hicolor/scalable/apps/app.nubra.Nubra.svg\n"));
        QVERIFY(text.contains(u"\nTryExec=" + folder + u"/bin/nubra\n"));
        const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_qs);
        QVERIFY2(!validator.isEmpty(), "desktop-file-validate (desktop-file-utils) is missing");
        QProcess validate;
        validate.start(validator, {path});
        QVERIFY(validate.waitForFinished());
        QVERIFY2(validate.exitCode() == 0, validate.readAllStandardOutput().constData());

        const QDateTime longAgo = QDateTime::currentDateTimeUtc().addDays(-3);
        QFile entry(path);
        QVERIFY(entry.open(QIODevice::ReadWrite) &&
                entry.setFileTime(longAgo, QFileDevice::FileModificationTime));
        entry.close();
        QCOMPARE(BundleDesktopEntry::refresh(bundle), BundleDesktopEntry::Outcome::unchanged);
        QCOMPARE(QFileInfo(path).lastModified().toSecsSinceEpoch(), longAgo.toSecsSinceEpoch());

        writeFile(path, "[Desktop Entry]\nExec=/old/place/Nubra/bin/nubra\n");
        QCOMPARE(BundleDesktopEntry::refresh(bundle), BundleDesktopEntry::Outcome::written);
        QCOMPARE(QString::fromUtf8(readFile(path)), text);
    }
};

QTEST_GUILESS_MAIN(BundleDesktopEntryTest)
#include "tst_bundledesktopentry.moc"
