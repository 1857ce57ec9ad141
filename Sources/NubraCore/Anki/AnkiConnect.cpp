#include "NubraCore/Anki/AnkiConnect.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace {

constexpr int apiVersion = 6;

AnkiResult<QStringList> stringList(AnkiResult<QJsonValue> answer) {
    if (auto* error = std::get_if<AnkiError>(&answer))
        return *error;
    const QJsonValue value = std::get<QJsonValue>(answer);
    if (!value.isArray())
        return AnkiError{AnkiError::Kind::badReply, QStringLiteral("the result is not a list")};
    QStringList names;
    for (const QJsonValue& item : value.toArray()) {
        if (!item.isString())
            return AnkiError{AnkiError::Kind::badReply, QStringLiteral("the list holds something else")};
        names << item.toString();
    }
    return names;
}

AnkiResult<qint64> identifier(AnkiResult<QJsonValue> answer) {
    if (auto* error = std::get_if<AnkiError>(&answer))
        return *error;
    const QJsonValue value = std::get<QJsonValue>(answer);
    if (!value.isDouble())
        return AnkiError{AnkiError::Kind::badReply, QStringLiteral("the result is not an id")};
    return value.toInteger();
}

bool isLoopback(const QUrl& url) {
    if (url.host() == u"localhost")
        return true;
    const QHostAddress address(url.host());
    return !address.isNull() && address.isLoopback();
}

} // namespace

QUrl AnkiConnect::configuredURL() {
    const QUrl configured(qEnvironmentVariable("NUBRA_ANKI_URL"), QUrl::StrictMode);
    if (configured.isValid() && configured.scheme() == u"http" && isLoopback(configured))
        return configured;
    return QUrl(QString::fromLatin1(defaultURL));
}

AnkiConnect::AnkiConnect(QUrl url, QNetworkAccessManager* session, Options options)
    : m_url(std::move(url)), m_session(session), m_options(options) {}

AnkiConnect::AnkiConnect(QUrl url, QNetworkAccessManager* session)
    : AnkiConnect(std::move(url), session, Options{}) {}

AnkiResult<QJsonValue> AnkiConnect::decode(const QByteArray& body) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    const QJsonObject envelope = document.object();
    if (parseError.error != QJsonParseError::NoError || !document.isObject() ||
        !envelope.contains(u"result") || !envelope.contains(u"error"))
        return AnkiError{AnkiError::Kind::badReply, QStringLiteral("not an AnkiConnect answer")};
    const QJsonValue error = envelope.value(u"error");
    if (error.isNull())
        return envelope.value(u"result");
    const QString message = error.isString() ? error.toString() : QStringLiteral("unknown error");
    // AnkiConnect words it "cannot create note because it is a duplicate".
    const bool duplicate = message.contains(QStringLiteral("duplicate"), Qt::CaseInsensitive);
    return AnkiError{duplicate ? AnkiError::Kind::duplicate : AnkiError::Kind::refused, message};
}

void AnkiConnect::call(const QString& action, const QJsonObject& params, QObject* context,
                       std::function<void(AnkiResult<QJsonValue>)> done) const {
    QJsonObject request{{QStringLiteral("action"), action}, {QStringLiteral("version"), apiVersion}};
    if (!params.isEmpty())
        request.insert(QStringLiteral("params"), params);
    QNetworkRequest httpRequest(m_url);
    httpRequest.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    httpRequest.setTransferTimeout(int(m_options.timeout.count()));
    QNetworkReply* reply =
        m_session->post(httpRequest, QJsonDocument(request).toJson(QJsonDocument::Compact));
    // Owned by the context: destroying it aborts the transfer and drops the answer.
    reply->setParent(context);
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > MaxReplyBytes) {
            reply->setProperty("nubraTooLarge", true);
            reply->abort();
        }
    });
    QObject::connect(reply, &QNetworkReply::finished, context, [reply, done = std::move(done)] {
        reply->deleteLater();
        if (reply->property("nubraTooLarge").toBool())
            return done(AnkiError{AnkiError::Kind::badReply, QStringLiteral("the answer is too large")});
        switch (reply->error()) {
        case QNetworkReply::NoError:
            break;
        case QNetworkReply::ConnectionRefusedError:
            return done(AnkiError{AnkiError::Kind::notRunning, reply->errorString()});
        case QNetworkReply::OperationCanceledError: // the transfer timeout
        case QNetworkReply::TimeoutError:
        case QNetworkReply::RemoteHostClosedError:
            return done(AnkiError{AnkiError::Kind::noAnswer, reply->errorString()});
        default:
            return done(AnkiError{AnkiError::Kind::badReply, reply->errorString()});
        }
        done(decode(reply->readAll()));
    });
}

void AnkiConnect::deckNames(QObject* context, std::function<void(AnkiResult<QStringList>)> done) const {
    call(QStringLiteral("deckNames"), {}, context,
         [done = std::move(done)](AnkiResult<QJsonValue> answer) { done(stringList(std::move(answer))); });
}

void AnkiConnect::modelNames(QObject* context, std::function<void(AnkiResult<QStringList>)> done) const {
    call(QStringLiteral("modelNames"), {}, context,
         [done = std::move(done)](AnkiResult<QJsonValue> answer) { done(stringList(std::move(answer))); });
}

void AnkiConnect::modelFieldNames(const QString& model, QObject* context,
                                  std::function<void(AnkiResult<QStringList>)> done) const {
    call(QStringLiteral("modelFieldNames"), {{QStringLiteral("modelName"), model}}, context,
         [done = std::move(done)](AnkiResult<QJsonValue> answer) { done(stringList(std::move(answer))); });
}

void AnkiConnect::createDeck(const QString& deck, QObject* context,
                             std::function<void(AnkiResult<qint64>)> done) const {
    call(QStringLiteral("createDeck"), {{QStringLiteral("deck"), deck}}, context,
         [done = std::move(done)](AnkiResult<QJsonValue> answer) { done(identifier(std::move(answer))); });
}

void AnkiConnect::addNote(const QString& deck, const QString& model, const QJsonObject& fields,
                          const QStringList& tags, QObject* context,
                          std::function<void(AnkiResult<qint64>)> done) const {
    const QJsonObject options{{QStringLiteral("allowDuplicate"), false},
                              {QStringLiteral("duplicateScope"), QStringLiteral("deck")}};
    const QJsonObject note{{QStringLiteral("deckName"), deck},
                           {QStringLiteral("modelName"), model},
                           {QStringLiteral("fields"), fields},
                           {QStringLiteral("options"), options},
                           {QStringLiteral("tags"), QJsonArray::fromStringList(tags)}};
    call(QStringLiteral("addNote"), {{QStringLiteral("note"), note}}, context,
         [done = std::move(done)](AnkiResult<QJsonValue> answer) { done(identifier(std::move(answer))); });
}
