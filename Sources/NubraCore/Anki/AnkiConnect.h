#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <functional>
#include <variant>

class QNetworkAccessManager;
class QObject;

// Why a call to AnkiConnect did not do what it was asked.
struct AnkiError {
    enum class Kind {
        notRunning, // nothing listens on the port: Anki is closed or has no AnkiConnect
        noAnswer,   // connected, but no whole answer in time
        refused,    // Anki answered with an error; `message` is Anki's own
        duplicate,  // Anki already has this note in the deck
        badReply,   // the answer is not AnkiConnect's (not JSON, no result and error, too big, HTTP error)
    };
    Kind kind;
    QString message;

    friend bool operator==(const AnkiError&, const AnkiError&) = default;
};

template <typename T> using AnkiResult = std::variant<T, AnkiError>;

// The client of AnkiConnect, the Anki add-on that answers JSON requests on a loopback port:
// {"action", "version": 6, "params"} is answered with {"result", "error"}. Every call runs on the
// event loop of the session's thread; `done` runs once, unless `context` is destroyed first, which
// also aborts the transfer. Cheap to copy.
class AnkiConnect {
public:
    struct Options {
        std::chrono::milliseconds timeout{5'000};
    };

    static constexpr const char* defaultURL = "http://127.0.0.1:8765";
    // Answers are lists of names and note ids; anything longer is not AnkiConnect's.
    static constexpr qint64 MaxReplyBytes = 1 << 20;

    // NUBRA_ANKI_URL when it is an http address on this computer, otherwise the default: the notes are
    // the user's lookups and never leave the machine.
    static QUrl configuredURL();

    AnkiConnect(QUrl url, QNetworkAccessManager* session, Options options);
    AnkiConnect(QUrl url, QNetworkAccessManager* session);

    const QUrl& url() const { return m_url; }

    void call(const QString& action, const QJsonObject& params, QObject* context,
              std::function<void(AnkiResult<QJsonValue>)> done) const;

    void deckNames(QObject* context, std::function<void(AnkiResult<QStringList>)> done) const;
    void modelNames(QObject* context, std::function<void(AnkiResult<QStringList>)> done) const;
    void modelFieldNames(const QString& model, QObject* context,
                         std::function<void(AnkiResult<QStringList>)> done) const;
    // Makes the deck unless it is there (AnkiConnect answers the existing one's id).
    void createDeck(const QString& deck, QObject* context,
                    std::function<void(AnkiResult<qint64>)> done) const;
    // Adds one note, never a second copy of one already in the deck; answers the new note's id.
    void addNote(const QString& deck, const QString& model, const QJsonObject& fields,
                 const QStringList& tags, QObject* context,
                 std::function<void(AnkiResult<qint64>)> done) const;

    // The envelope of an answer: its result, or the error Anki put in it, or badReply.
    static AnkiResult<QJsonValue> decode(const QByteArray& body);

private:
    QUrl m_url;
    QNetworkAccessManager* m_session;
    Options m_options;
};
