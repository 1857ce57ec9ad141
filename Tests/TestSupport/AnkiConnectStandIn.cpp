#include "TestSupport/AnkiConnectStandIn.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

AnkiConnectStandIn::AnkiConnectStandIn() {
    m_models.insert(QStringLiteral("Basic"), {QStringLiteral("Front"), QStringLiteral("Back")});
    m_server.route("POST", "/", [this](const LocalHttpServer::Request& request) { return handle(request); });
    m_server.start();
}

AnkiConnectStandIn::~AnkiConnectStandIn() {
    m_server.stop();
}

void AnkiConnectStandIn::addModel(const QString& name, const QStringList& fields) {
    std::lock_guard lock(m_mutex);
    m_models.insert(name, fields);
}

void AnkiConnectStandIn::answerNextWith(LocalHttpServer::Response response) {
    std::lock_guard lock(m_mutex);
    m_scripted.push_back(std::move(response));
}

QStringList AnkiConnectStandIn::decks() const {
    std::lock_guard lock(m_mutex);
    return m_decks;
}

std::vector<AnkiConnectStandIn::Note> AnkiConnectStandIn::notes() const {
    std::lock_guard lock(m_mutex);
    return m_notes;
}

QStringList AnkiConnectStandIn::actions() const {
    std::lock_guard lock(m_mutex);
    return m_actions;
}

LocalHttpServer::Response AnkiConnectStandIn::handle(const LocalHttpServer::Request& request) {
    std::lock_guard lock(m_mutex);
    const QJsonObject body = QJsonDocument::fromJson(request.body).object();
    const QString action = body.value(u"action").toString();
    m_actions << action;
    if (!m_scripted.empty()) {
        LocalHttpServer::Response next = m_scripted.front();
        m_scripted.pop_front();
        return next;
    }
    QString error;
    QJsonValue result;
    if (body.value(u"version").toInt() != 6)
        error = QStringLiteral("unsupported version");
    else
        result = run(action, body.value(u"params").toObject(), error);
    const QJsonObject envelope{{QStringLiteral("result"), error.isEmpty() ? result : QJsonValue()},
                               {QStringLiteral("error"), error.isEmpty() ? QJsonValue() : QJsonValue(error)}};
    return LocalHttpServer::Response::whole(200, QJsonDocument(envelope).toJson(QJsonDocument::Compact));
}

QJsonValue AnkiConnectStandIn::run(const QString& action, const QJsonObject& params, QString& error) {
    if (action == u"deckNames")
        return QJsonArray::fromStringList(m_decks);
    if (action == u"modelNames")
        return QJsonArray::fromStringList(m_models.keys());
    if (action == u"modelFieldNames") {
        const QString model = params.value(u"modelName").toString();
        if (!m_models.contains(model))
            error = QStringLiteral("model was not found: ") + model;
        return QJsonArray::fromStringList(m_models.value(model));
    }
    if (action == u"createDeck") {
        const QString deck = params.value(u"deck").toString();
        if (!m_decks.contains(deck))
            m_decks << deck;
        return 1000 + m_decks.indexOf(deck);
    }
    if (action == u"addNote") {
        const QJsonObject note = params.value(u"note").toObject();
        Note added{note.value(u"deckName").toString(),
                   note.value(u"modelName").toString(),
                   note.value(u"fields").toObject(),
                   {}};
        for (const QJsonValue& tag : note.value(u"tags").toArray())
            added.tags << tag.toString();
        const QStringList fields = m_models.value(added.model);
        const QJsonObject options = note.value(u"options").toObject();
        if (!m_models.contains(added.model))
            error = QStringLiteral("model was not found: ") + added.model;
        else if (!m_decks.contains(added.deck))
            error = QStringLiteral("deck was not found: ") + added.deck;
        else if (added.fields.value(fields.first()).toString().isEmpty())
            error = QStringLiteral("cannot create note because it is empty");
        else if (!options.value(u"allowDuplicate").toBool(true) &&
                 std::any_of(m_notes.begin(), m_notes.end(), [&](const Note& other) {
                     return other.deck == added.deck && other.model == added.model &&
                            other.fields.value(fields.first()) == added.fields.value(fields.first());
                 }))
            error = QStringLiteral("cannot create note because it is a duplicate");
        if (!error.isEmpty())
            return {};
        m_notes.push_back(added);
        return qint64(1'700'000'000'000) + qint64(m_notes.size());
    }
    error = QStringLiteral("unsupported action");
    return {};
}
