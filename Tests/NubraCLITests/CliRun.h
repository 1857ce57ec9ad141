#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>

// Runs the real nubra-cli binary in a private home: its own settings, data folder and time zone.
class CliHome {
public:
    struct Result {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };

    CliHome();

    QString path(const QString& relative) const { return m_dir.filePath(relative); }
    // Where the app (and nubra-cli without --db) keeps its history.
    QString defaultHistoryPath() const;
    // Writes the app's settings file with these "key=value" lines.
    void writeSettings(const QStringList& lines) const;

    QProcessEnvironment& environment() { return m_env; }
    Result run(const QStringList& arguments) const;

private:
    QTemporaryDir m_dir;
    QProcessEnvironment m_env;
};
