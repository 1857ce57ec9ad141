#include "NubraCLI/EventPrinter.h"

#include "NubraCLI/Console.h"
#include "NubraCore/Support/ControlCharacters.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString meaningHeading() {
    return L10n::t(QStringLiteral("In this context:"), QStringLiteral("语境含义："));
}

} // namespace

QByteArray JsonEventPrinter::line(const SSEEvent& event) {
    QJsonObject object;
    QString name;
    if (const auto* meta = event.as<SSEEvent::Meta>()) {
        name = QStringLiteral("meta");
        object.insert(QStringLiteral("model"), meta->model);
        object.insert(QStringLiteral("estimated_cost"), qint64(meta->estimatedCost));
        object.insert(QStringLiteral("credits_remaining"), qint64(meta->creditsRemaining));
    } else if (const auto* delta = event.as<SSEEvent::Delta>()) {
        name = QStringLiteral("delta");
        object.insert(QStringLiteral("field"), delta->field);
        object.insert(QStringLiteral("text"), delta->text);
    } else if (const auto* done = event.as<SSEEvent::Done>()) {
        name = QStringLiteral("done");
        object = done->result.toJson();
    } else if (const auto* error = event.as<SSEEvent::Error>()) {
        name = QStringLiteral("error");
        object.insert(QStringLiteral("code"), error->code);
        object.insert(QStringLiteral("message"), error->message);
    }
    object.insert(QStringLiteral("event"), name);
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

void JsonEventPrinter::print(const SSEEvent& event) {
    Console::data(line(event));
}

void TextEventPrinter::write(const QString& text) {
    // What the terminal will show decides whether a line is left open.
    const QString shown = ControlCharacters::stripped(text);
    if (shown.isEmpty())
        return;
    Console::out(shown);
    m_lineOpen = !shown.endsWith(u'\n');
}

void TextEventPrinter::print(const SSEEvent& event) {
    if (const auto* delta = event.as<SSEEvent::Delta>()) {
        if (delta->field == u"gloss") {
            if (m_meaningStarted) {
                m_outOfOrder = true;
                return;
            }
            m_gloss += delta->text;
            write(delta->text);
        } else {
            if (!m_meaningStarted) {
                m_meaningStarted = true;
                write((m_gloss.isEmpty() ? QString() : QStringLiteral("\n\n")) + meaningHeading() + u'\n');
            }
            m_meaning += delta->text;
            write(delta->text);
        }
    } else if (const auto* done = event.as<SSEEvent::Done>()) {
        const GlossResult& result = done->result;
        // Services stream the blank lines around their sections and trim the final text; that alone
        // is no reason to print everything again.
        if (m_outOfOrder || result.gloss.trimmed() != m_gloss.trimmed() ||
            result.contextualMeaning.trimmed() != m_meaning.trimmed()) {
            // The service's final word differs from what streamed in: show the final text whole.
            if (!m_gloss.isEmpty() || m_meaningStarted)
                write(QStringLiteral("\n\n"));
            QString text = result.gloss;
            if (!result.contextualMeaning.isEmpty())
                text += (text.isEmpty() ? QString() : QStringLiteral("\n\n")) + meaningHeading() + u'\n' +
                        result.contextualMeaning;
            write(text);
        }
        m_gloss = result.gloss;
        m_meaning = result.contextualMeaning;
    }
}

void TextEventPrinter::end() {
    if (m_lineOpen)
        write(QStringLiteral("\n"));
}
