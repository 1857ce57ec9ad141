#pragma once

#include "TestSupport/LocalHttpServer.h"

#include <QJsonObject>
#include <QMap>
#include <QStringList>

#include <deque>
#include <mutex>

// AnkiConnect as the tests see it: a loopback server answering deckNames, modelNames, modelFieldNames,
// createDeck and addNote in AnkiConnect's envelope ({"result", "error"}), with Anki's own refusals: an
// unknown note type or deck, an empty first field, and a duplicate in the same deck.
class AnkiConnectStandIn {
public:
    struct Note {
        QString deck;
        QString model;
        QJsonObject fields;
        QStringList tags;
    };

    AnkiConnectStandIn();
    ~AnkiConnectStandIn();

    QUrl url() const { return m_server.url(); }

    void addModel(const QString& name, const QStringList& fields);
    // The next request is answered with this instead of an AnkiConnect answer.
    void answerNextWith(LocalHttpServer::Response response);

    QStringList decks() const;
    std::vector<Note> notes() const;
    // Actions in the order they came.
    QStringList actions() const;

private:
    LocalHttpServer::Response handle(const LocalHttpServer::Request& request);
    QJsonValue run(const QString& action, const QJsonObject& params, QString& error);

    LocalHttpServer m_server;
    mutable std::mutex m_mutex;
    QStringList m_decks{QStringLiteral("Default")};
    QMap<QString, QStringList> m_models;
    std::vector<Note> m_notes;
    QStringList m_actions;
    std::deque<LocalHttpServer::Response> m_scripted;
};
