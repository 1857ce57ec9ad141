// The least a Qt Widgets tray utility can be: an application, a tray icon and its menu, nothing else.
// The application benchmark measures Nubra's start-up, idle memory and idle CPU beside this program's.
#include <QApplication>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QMenu menu;
    menu.addAction(QStringLiteral("Quit"), &app, &QCoreApplication::quit);
    QPixmap pixmap(22, 22);
    pixmap.fill(Qt::darkCyan);
    QSystemTrayIcon tray{QIcon(pixmap)};
    tray.setContextMenu(&menu);
    tray.show();
    return QApplication::exec();
}
