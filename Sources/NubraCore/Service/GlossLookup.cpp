#include "NubraCore/Service/GlossLookup.h"

#include "NubraCore/Support/DebugLog.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>

namespace {

// What the socket may hold for us before Qt stops reading from it; the decoder drains it on every
// readyRead, so this bounds memory without slowing a stream down.
constexpr qint64 replyBufferBytes = 256 * 1024;
constexpr std::int64_t defaultRetryAfter = 60;

std::int64_t retryAfterSeconds(const QByteArray& value) {
    static const QRegularExpression decimal(QStringLiteral("^[+-]?[0-9]+$"));
    if (!decimal.match(QString::fromLatin1(value)).hasMatch())
        return defaultRetryAfter;
    bool ok = false;
    const qlonglong seconds = value.toLongLong(&ok, 10);
    return ok ? seconds : defaultRetryAfter;
}

} // namespace

GlossLookup::GlossLookup(GlossAPI api, QByteArray body, std::optional<QString> deviceToken, QString deviceId,
                         GlossAPI::TokenRenewal renewal)
    : m_api(std::move(api)), m_body(std::move(body)), m_deviceToken(std::move(deviceToken)),
      m_deviceId(std::move(deviceId)), m_renewal(std::move(renewal)) {
    send();
}

GlossLookup::~GlossLookup() {
    m_ended = true;
    if (m_reply) {
        disconnect(m_reply, nullptr, this, nullptr);
        m_reply->abort();
    }
}

void GlossLookup::cancel() {
    if (m_ended)
        return;
    m_cancelled = true;
    dropReply();
    fail(GlossAPIError::network(QStringLiteral("cancelled")));
}

void GlossLookup::send() {
    m_decoder = SSEDecoder();
    m_statusAccepted = false;
    m_reply = m_api.session()->post(m_api.buildGlossRequest(m_deviceToken, m_deviceId), m_body);
    m_reply->setParent(this);
    m_reply->setReadBufferSize(replyBufferBytes);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, &GlossLookup::onMetaData);
    connect(m_reply, &QNetworkReply::readyRead, this, &GlossLookup::onReadyRead);
    connect(m_reply, &QNetworkReply::finished, this, &GlossLookup::onReplyFinished);
}

void GlossLookup::onMetaData() {
    // A redirect that Qt follows reports its own status first; wait for the final answer.
    if (m_reply->attribute(QNetworkRequest::RedirectionTargetAttribute).isValid())
        return;
    if (m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
        acceptStatus();
}

bool GlossLookup::acceptStatus() {
    if (m_ended)
        return false;
    if (m_statusAccepted)
        return true;
    const QVariant statusAttribute = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!statusAttribute.isValid()) {
        // No HTTP answer at all: the transport failed, or something that is not HTTP answered.
        if (m_reply->error() != QNetworkReply::NoError || !m_reply->isFinished())
            return false;
        dropReply();
        fail(GlossAPIError::network(QStringLiteral("no response")));
        return false;
    }
    const int status = statusAttribute.toInt();
    if (status == 401 && m_renewal && !m_renewed) {
        renew();
        return false;
    }
    if (status == 429) {
        const auto seconds = retryAfterSeconds(m_reply->rawHeader("retry-after"));
        dropReply();
        fail(GlossAPIError::rateLimited(seconds));
        return false;
    }
    if (status < 200 || status > 299) {
        dropReply();
        fail(GlossAPIError::invalidResponse(status));
        return false;
    }
    m_statusAccepted = true;
    return true;
}

void GlossLookup::renew() {
    m_renewed = true;
    dropReply();
    nbDebug(QStringLiteral("gloss: token refused (401), renewing"));
    QPointer<GlossLookup> self(this);
    m_renewal(this, [self](std::optional<QString> token) {
        if (!self || self->m_ended)
            return;
        if (!token) {
            self->fail(GlossAPIError::invalidResponse(401));
            return;
        }
        self->m_deviceToken = std::move(token);
        self->send();
    });
}

void GlossLookup::onReadyRead() {
    if (!acceptStatus())
        return;
    const QByteArray bytes = m_reply->readAll();
    if (!deliver(m_decoder.push(bytes), true))
        return;
    if (m_decoder.state() == SSEDecoder::State::tooLarge) {
        dropReply();
        fail(GlossAPIError::network(m_decoder.failure()));
    }
}

void GlossLookup::onReplyFinished() {
    if (m_ended || !m_reply)
        return;
    const QNetworkReply::NetworkError error = m_reply->error();
    if (m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid() ||
        error == QNetworkReply::NoError) {
        if (!acceptStatus())
            return;
    }
    if (error != QNetworkReply::NoError) {
        const QString description = error == QNetworkReply::OperationCanceledError && !m_cancelled
                                        ? QStringLiteral("The request timed out.")
                                        : m_reply->errorString();
        dropReply();
        fail(GlossAPIError::network(description));
        return;
    }
    onReadyRead();
    if (m_ended)
        return;
    if (!deliver(m_decoder.endOfBody(), true) || !deliver(m_decoder.finish(), false))
        return;
    if (m_decoder.state() == SSEDecoder::State::tooLarge) {
        dropReply();
        fail(GlossAPIError::network(m_decoder.failure()));
        return;
    }
    dropReply();
    finish();
}

bool GlossLookup::deliver(std::vector<SSEEvent> events, bool streaming) {
    QPointer<GlossLookup> self(this);
    for (const SSEEvent& e : events) {
        emit event(e);
        if (!self || m_ended)
            return false;
        if (!streaming)
            continue;
        // The stream is over at "done" or "error", even if the server keeps the connection open.
        if (e.isDone()) {
            dropReply();
            finish();
            return false;
        }
        if (const auto* error = e.as<SSEEvent::Error>()) {
            dropReply();
            fail(GlossAPIError::upstream(error->code, error->message));
            return false;
        }
    }
    return true;
}

void GlossLookup::dropReply() {
    if (!m_reply)
        return;
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    disconnect(reply, nullptr, this, nullptr);
    // Aborting from inside one of the reply's own signals confuses its bookkeeping; both steps are
    // queued, in this order.
    QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
    reply->deleteLater();
}

void GlossLookup::finish() {
    if (m_ended)
        return;
    m_ended = true;
    emit finished();
}

void GlossLookup::fail(const GlossAPIError& error) {
    if (m_ended)
        return;
    m_ended = true;
    // The service's code and texts go to the log; never the request's headers, which carry the token.
    const QString detail = error.kind == GlossAPIError::Kind::upstream ? error.code + u' ' + error.message
                                                                       : error.errorDescription();
    nbDebug(QStringLiteral("gloss: failed: ") + detail);
    emit failed(error);
}
