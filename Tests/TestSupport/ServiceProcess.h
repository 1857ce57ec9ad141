#pragma once

#include <QProcess>
#include <QUrl>

// Starts a service binary with "--port 0" added and waits up to 20 s for it to announce
// "listening on http://..." on standard error: its address, or an empty URL when it never did.
QUrl startListening(QProcess& process, const QString& program, QStringList arguments);
