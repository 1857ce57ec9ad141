#include "NubraApp/Settings/GlossServiceRow.h"

#include "NubraApp/Settings/LocalGlossService.h"
#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

GlossServiceRow::GlossServiceRow(const QUrl& baseURL, QNetworkAccessManager& network, QWidget* parent)
    : QWidget(parent), m_baseURL(baseURL), m_service(new LocalGlossService(baseURL, network, this)),
      m_message(new QLabel(this)),
      m_start(new QPushButton(L10n::t(QStringLiteral("Start Service"), QStringLiteral("启动服务")), this)) {
    setObjectName(QStringLiteral("glossServiceRow"));
    m_message->setObjectName(QStringLiteral("glossServiceMessage"));
    m_message->setWordWrap(true);
    SettingsStyle::setCaption(m_message);
    m_start->setObjectName(QStringLiteral("startServiceButton"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_message, 1);
    layout->addWidget(m_start, 0, Qt::AlignTop);
    connect(m_start, &QPushButton::clicked, m_service, &LocalGlossService::start);
    connect(m_service, &LocalGlossService::stateChanged, this, &GlossServiceRow::follow);
}

void GlossServiceRow::refresh() {
    m_service->refresh();
}

void GlossServiceRow::follow() {
    using State = LocalGlossService::State;
    const State state = m_service->state();
    switch (state) {
    case State::startable:
        m_message->setText(
            L10n::t(QStringLiteral("The gloss service at %1 is not running; its user service "
                                   "nubra-glossd can start it."),
                    QStringLiteral("%1 上的解释服务没有运行；可以启动它的用户服务 nubra-glossd。"))
                .arg(m_baseURL.toString()));
        break;
    case State::starting:
        m_message->setText(
            L10n::t(QStringLiteral("Starting nubra-glossd…"), QStringLiteral("正在启动 nubra-glossd…")));
        break;
    case State::startFailed:
        m_message->setText(L10n::t(QStringLiteral("Could not start nubra-glossd: "),
                                   QStringLiteral("无法启动 nubra-glossd：")) +
                           m_service->failure());
        break;
    case State::notLocal:
    case State::probing:
    case State::answering:
    case State::notAnswering:
        break;
    }
    m_start->setEnabled(state == State::startable || state == State::startFailed);
    // While a new probe runs, a row on screen stays, so it does not flicker on every refresh.
    const bool relevant = state == State::startable || state == State::starting ||
                          state == State::startFailed || (state == State::probing && m_relevant);
    if (relevant != m_relevant) {
        m_relevant = relevant;
        emit relevanceChanged(relevant);
    }
}
