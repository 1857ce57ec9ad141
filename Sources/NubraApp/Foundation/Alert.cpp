#include "NubraApp/Foundation/Alert.h"

#include <QPushButton>

namespace Alert {

QMessageBox* make(const QString& name, QMessageBox::Icon icon, const QString& title, const QString& body) {
    auto* alert = new QMessageBox(icon, title, title, QMessageBox::NoButton);
    alert->setObjectName(name);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setInformativeText(body);
    return alert;
}

QPushButton* addButton(QMessageBox* alert, const QString& text, QMessageBox::ButtonRole role,
                       const QString& suffix) {
    // Texts are shown as written: an "&" is not a keyboard mnemonic here.
    QPushButton* button = alert->addButton(QString(text).replace(u'&', QStringLiteral("&&")), role);
    button->setObjectName(alert->objectName() + suffix);
    if (!alert->defaultButton())
        alert->setDefaultButton(button);
    return button;
}

QPushButton* addOk(QMessageBox* alert) {
    QPushButton* button = alert->addButton(QMessageBox::Ok);
    button->setObjectName(alert->objectName() + QStringLiteral("Button"));
    if (!alert->defaultButton())
        alert->setDefaultButton(button);
    return button;
}

void present(QMessageBox* alert) {
    alert->show();
    alert->raise();
    alert->activateWindow();
}

} // namespace Alert
