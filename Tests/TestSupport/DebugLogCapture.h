#pragma once

#include <QStringList>
#include <QTemporaryDir>

// Points the debug log at a private file for the life of the object, and reads back what was logged.
class DebugLogCapture {
public:
    DebugLogCapture();
    ~DebugLogCapture();
    DebugLogCapture(const DebugLogCapture&) = delete;
    DebugLogCapture& operator=(const DebugLogCapture&) = delete;

    QString path() const;
    // Every line written so far, without the time stamp and its separating blank.
    QStringList messages() const;
    // The file exactly as written.
    QByteArray raw() const;
    void clear();

private:
    QTemporaryDir m_dir;
    QString m_previousPath;
};
