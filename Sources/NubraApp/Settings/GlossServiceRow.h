#pragma once

#include <QUrl>
#include <QWidget>

class LocalGlossService;
class QLabel;
class QNetworkAccessManager;
class QPushButton;

// Offers to start the gloss service when Nubra uses one on this machine, nothing answers there, and
// its systemd user unit is installed: better than every lookup failing with a network issue. Hidden
// in every other case; relevanceChanged() tells the page to show or hide the row.
class GlossServiceRow final : public QWidget {
    Q_OBJECT

public:
    GlossServiceRow(const QUrl& baseURL, QNetworkAccessManager& network, QWidget* parent = nullptr);

    bool isRelevant() const { return m_relevant; }
    // Asks again whether the service answers; the page calls it whenever it is shown.
    void refresh();

signals:
    void relevanceChanged(bool relevant);

private:
    void follow();

    QUrl m_baseURL;
    LocalGlossService* m_service;
    QLabel* m_message;
    QPushButton* m_start;
    bool m_relevant = false;
};
