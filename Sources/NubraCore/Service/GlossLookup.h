#pragma once

#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/GlossAPIError.h"
#include "NubraCore/Service/SSEDecoder.h"
#include "NubraCore/Service/SSEEvent.h"

#include <QObject>
#include <QPointer>

class QNetworkReply;

// One lookup in flight: sends the request, decodes the event stream as it arrives and emits each event
// as soon as its block is complete, then exactly one finished() or one failed(). Cancelling or
// destroying it aborts the transfer. Lives on the thread of the API's session.
class GlossLookup : public QObject {
    Q_OBJECT
public:
    ~GlossLookup() override;

    // Stops the transfer; a lookup still running fails with a network error.
    void cancel();
    bool isRunning() const { return !m_ended; }

signals:
    void event(const SSEEvent& event);
    void finished();
    void failed(const GlossAPIError& error);

private:
    friend class GlossAPI;
    GlossLookup(GlossAPI api, QByteArray body, std::optional<QString> deviceToken, QString deviceId,
                GlossAPI::TokenRenewal renewal);

    void send();
    void onMetaData();
    void onReadyRead();
    void onReplyFinished();
    // Reads the status once it is known; false when the lookup has ended or been handed to renewal.
    bool acceptStatus();
    void renew();
    // Emits the events in order; false if the lookup ended (or was destroyed) meanwhile.
    bool deliver(std::vector<SSEEvent> events, bool streaming);
    void dropReply();
    void finish();
    void fail(const GlossAPIError& error);

    GlossAPI m_api;
    QByteArray m_body;
    std::optional<QString> m_deviceToken;
    QString m_deviceId;
    GlossAPI::TokenRenewal m_renewal;
    bool m_renewed = false;

    QPointer<QNetworkReply> m_reply;
    SSEDecoder m_decoder;
    bool m_statusAccepted = false;
    bool m_ended = false;
    bool m_cancelled = false;
};
