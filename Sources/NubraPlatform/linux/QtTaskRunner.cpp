#include "NubraPlatform/linux/QtTaskRunner.h"

#include <QCoreApplication>
#include <QThreadPool>

void QtTaskRunner::runInBackground(std::function<void()> work) {
    QThreadPool::globalInstance()->start(std::move(work));
}

void QtTaskRunner::runOnMain(std::function<void()> work) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(work), Qt::QueuedConnection);
}
