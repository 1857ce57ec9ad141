#include "NubraCore/Anki/AnkiDelivery.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>

namespace {

QString errorSentence(const AnkiError& error) {
    switch (error.kind) {
    case AnkiError::Kind::notRunning:
        return L10n::t(QStringLiteral("Anki is not running."), QStringLiteral("Anki 未运行。"));
    case AnkiError::Kind::noAnswer:
        return L10n::t(QStringLiteral("Anki did not answer in time; try again."),
                       QStringLiteral("Anki 没有及时响应，请重试。"));
    case AnkiError::Kind::refused:
    case AnkiError::Kind::duplicate:
        return L10n::t(QStringLiteral("Anki refused: %1").arg(error.message),
                       QStringLiteral("Anki 拒绝了：%1").arg(error.message));
    case AnkiError::Kind::badReply:
        return L10n::t(
            QStringLiteral("What answers on Anki's port is not AnkiConnect (%1).").arg(error.message),
            QStringLiteral("Anki 端口上的程序不是 AnkiConnect（%1）。").arg(error.message));
    }
    return {};
}

} // namespace

QString AnkiReport::message() const {
    QStringList parts;
    if (added > 0)
        parts << L10n::t(
            added == 1 ? QStringLiteral("Added to Anki (deck “%1”).").arg(target.deck)
                       : QStringLiteral("Added %1 notes to Anki (deck “%2”).").arg(added).arg(target.deck),
            added == 1 ? QStringLiteral("已添加到 Anki（牌组“%1”）。").arg(target.deck)
                       : QStringLiteral("已添加 %1 张卡片到 Anki（牌组“%2”）。").arg(added).arg(target.deck));
    if (duplicates > 0)
        parts << L10n::t(duplicates == 1 && added == 0 && failed == 0
                             ? QStringLiteral("Already in Anki.")
                             : QStringLiteral("%1 already in Anki.").arg(duplicates),
                         duplicates == 1 && added == 0 && failed == 0
                             ? QStringLiteral("Anki 中已有这张卡片。")
                             : QStringLiteral("%1 张已在 Anki 中。").arg(duplicates));
    if (filePath && fileError)
        parts << L10n::t(
            QStringLiteral("Anki is not running, and %1 could not be written: %2").arg(*filePath, *fileError),
            QStringLiteral("Anki 未运行，且无法写入 %1：%2").arg(*filePath, *fileError));
    if (filePath && alreadyFiled > 0 && filed == 0)
        parts << L10n::t(
            QStringLiteral("Anki is not running; what was sent is already waiting in %1.").arg(*filePath),
            QStringLiteral("Anki 未运行；所发送的卡片已在 %1 中等待导入。").arg(*filePath));
    if (filePath && filed > 0)
        parts << L10n::t(
            QStringLiteral("Anki (with AnkiConnect) is not running: saved to %1 for File › Import.")
                .arg(*filePath),
            QStringLiteral("Anki（含 AnkiConnect）未运行：已保存到 %1，可在 Anki 中“文件 › 导入”。")
                .arg(*filePath));
    if (error) {
        if (failed > 1)
            parts << L10n::t(QStringLiteral("%1 not added.").arg(failed),
                             QStringLiteral("%1 张未添加。").arg(failed));
        parts << errorSentence(*error);
    }
    return parts.join(u' ');
}

AnkiDelivery::AnkiDelivery(AnkiConnect client, QString pendingFolder, QObject* parent)
    : QObject(parent), m_client(std::move(client)), m_pendingFolder(std::move(pendingFolder)) {}

void AnkiDelivery::send(QList<AnkiNote> notes, AnkiTarget target) {
    m_notes = std::move(notes);
    m_next = 0;
    m_report = AnkiReport();
    m_report.target = target;
    // The fields decide where front and back go; asking also tells whether Anki runs at all.
    m_client.modelFieldNames(target.noteType, this, [this](AnkiResult<QStringList> fields) {
        if (auto* error = std::get_if<AnkiError>(&fields))
            return error->kind == AnkiError::Kind::notRunning ? fileRemaining(0) : fail(*error);
        m_client.createDeck(m_report.target.deck, this,
                            [this, names = std::get<QStringList>(fields)](AnkiResult<qint64> deck) {
                                if (auto* error = std::get_if<AnkiError>(&deck))
                                    return error->kind == AnkiError::Kind::notRunning ? fileRemaining(0)
                                                                                      : fail(*error);
                                addNext(names);
                            });
    });
}

void AnkiDelivery::addNext(const QStringList& fieldNames) {
    if (m_next >= m_notes.size()) {
        emit finished(m_report);
        return;
    }
    const QStringList values = m_notes.at(m_next).fieldsFor(fieldNames);
    QJsonObject fields;
    for (qsizetype i = 0; i < fieldNames.size(); ++i)
        fields.insert(fieldNames.at(i), values.at(i));
    m_client.addNote(m_report.target.deck, m_report.target.noteType, fields,
                     {QString::fromLatin1(AnkiTextFile::tag)}, this,
                     [this, fieldNames](AnkiResult<qint64> added) {
                         if (auto* error = std::get_if<AnkiError>(&added)) {
                             switch (error->kind) {
                             case AnkiError::Kind::duplicate:
                                 ++m_report.duplicates;
                                 break;
                             case AnkiError::Kind::refused:
                                 ++m_report.failed;
                                 if (!m_report.error)
                                     m_report.error = *error;
                                 break;
                             case AnkiError::Kind::notRunning: // Anki quit on the way
                                 return fileRemaining(m_next);
                             case AnkiError::Kind::noAnswer:
                             case AnkiError::Kind::badReply:
                                 return fail(*error);
                             }
                         } else {
                             ++m_report.added;
                         }
                         ++m_next;
                         addNext(fieldNames);
                     });
}

void AnkiDelivery::fail(const AnkiError& error) {
    nbDebug(QStringLiteral("anki: %1").arg(error.message));
    m_report.failed += int(m_notes.size() - m_next);
    if (!m_report.error)
        m_report.error = error;
    emit finished(m_report);
}

void AnkiDelivery::fileRemaining(qsizetype from) {
    const QList<AnkiNote> rest = m_notes.mid(from);
    const AnkiTarget target = m_report.target;
    const QString path = AnkiTextFile::pendingPath(m_pendingFolder, target);
    QPointer<AnkiDelivery> self(this);
    QThreadPool::globalInstance()->start([self, rest, target, path] {
        const std::variant<AnkiTextFile::Appended, QString> outcome =
            AnkiTextFile::append(path, rest, target);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, outcome, path, count = int(rest.size())] {
                if (!self)
                    return;
                AnkiReport& report = self->m_report;
                report.filePath = path;
                if (const auto* failure = std::get_if<QString>(&outcome)) {
                    report.failed += count;
                    report.fileError = *failure;
                } else {
                    report.filed = std::get<AnkiTextFile::Appended>(outcome).written;
                    report.alreadyFiled = std::get<AnkiTextFile::Appended>(outcome).alreadyThere;
                }
                emit self->finished(report);
            },
            Qt::QueuedConnection);
    });
}
