#include "NubraGlossd/OpenAIBackend.h"

#include "NubraGlossd/SectionSplitter.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <httplib.h>

namespace {

constexpr std::size_t MaxLineBytes = 64 * 1024;
constexpr std::size_t MaxAnswerBytes = 4 * 1024 * 1024;
constexpr std::size_t MaxErrorBodyBytes = 4 * 1024;

QString styleInstruction(const QString& style) {
    if (style == u"academic")
        return QStringLiteral("academic: precise terms, the broader field it belongs to");
    if (style == u"coding")
        return QStringLiteral("programming notes: what the code, identifier or term does and how it is used");
    if (style == u"language_learning")
        return QStringLiteral(
            "for a language learner: part of speech, pronunciation, synonyms and an example");
    return QStringLiteral("plain words anyone understands");
}

QString lengthInstruction(const QString& length) {
    if (length == u"short")
        return QStringLiteral("one or two sentences");
    if (length == u"detailed")
        return QStringLiteral("a thorough explanation of several paragraphs");
    return QStringLiteral("a short paragraph");
}

QString languageInstruction(const QString& lang) {
    if (lang == u"zh")
        return QStringLiteral("Simplified Chinese");
    if (lang == u"en")
        return QStringLiteral("English");
    return QStringLiteral("the language of the selection");
}

QString upstreamMessage(const std::string& body) {
    const QJsonObject object = QJsonDocument::fromJson(QByteArray::fromStdString(body)).object();
    const QString message = object.value(u"error").toObject().value(u"message").toString();
    return message.left(300);
}

} // namespace

OpenAIBackend::OpenAIBackend(OpenAIConfig config) : m_config(std::move(config)) {
    const std::size_t scheme = m_config.upstream.find("://");
    const std::size_t pathAt = m_config.upstream.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    m_origin = m_config.upstream.substr(0, pathAt);
    std::string prefix = pathAt == std::string::npos ? "" : m_config.upstream.substr(pathAt);
    while (!prefix.empty() && prefix.back() == '/')
        prefix.pop_back();
    m_path = prefix + "/chat/completions";
}

QString OpenAIBackend::modelName(const GlossRequest& request) const {
    if (request.modelTier() == u"fast" && !m_config.fastModel.isEmpty())
        return m_config.fastModel;
    if (request.modelTier() == u"quality" && !m_config.qualityModel.isEmpty())
        return m_config.qualityModel;
    return m_config.model;
}

QJsonObject OpenAIBackend::chatRequest(const GlossRequest& request, const QString& model) {
    const QString system =
        QStringLiteral(
            "You explain text a reader has selected, in place. Style: %1. Length: %2. Answer in %3. "
            "First write the explanation of the selection. Then write a line holding only %4, and "
            "after it one or two sentences on what the selection means in its context.")
            .arg(styleInstruction(request.style()), lengthInstruction(request.length()),
                 languageInstruction(request.lang()), SectionSplitter::marker);
    QString user = QStringLiteral("Selection:\n%1\n\nText before it:\n%2\n\nText after it:\n%3")
                       .arg(request.selectedText(), request.contextBefore(), request.contextAfter());
    if (request.sourceApp())
        user += QStringLiteral("\n\nApplication: %1").arg(*request.sourceApp());
    return {{QStringLiteral("model"), model},
            {QStringLiteral("stream"), true},
            {QStringLiteral("messages"),
             QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("system")},
                                    {QStringLiteral("content"), system}},
                        QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                                    {QStringLiteral("content"), user}}}}};
}

void OpenAIBackend::shutdown() {
    m_stopping = true;
    std::lock_guard lock(m_mutex);
    for (httplib::Client* client : m_active)
        client->stop();
}

BackendOutcome OpenAIBackend::gloss(const GlossRequest& request, EventSink& sink) {
    httplib::Client client(m_origin);
    client.set_connection_timeout(std::chrono::seconds(10));
    client.set_read_timeout(std::chrono::seconds(m_config.timeoutSeconds));
    {
        std::lock_guard lock(m_mutex);
        if (m_stopping)
            return BackendError{QStringLiteral("SHUTTING_DOWN"),
                                QStringLiteral("The service is shutting down.")};
        m_active.insert(&client);
    }

    SectionSplitter splitter;
    GlossResult result;
    int status = 0;
    bool cancelled = false;
    bool overflow = false;
    std::string line;
    std::string errorBody;
    std::size_t received = 0;

    const auto send = [&](const std::vector<std::pair<QString, QString>>& pieces) {
        for (const auto& [field, text] : pieces) {
            (field == u"gloss" ? result.gloss : result.contextualMeaning) += text;
            if (!sink.delta(field, text))
                return false;
        }
        return true;
    };
    const auto handleLine = [&](std::string_view text) {
        if (!text.starts_with("data:"))
            return true;
        const QByteArray payload = QByteArray(text.data() + 5, qsizetype(text.size() - 5)).trimmed();
        if (payload == "[DONE]")
            return true;
        const QJsonObject chunk = QJsonDocument::fromJson(payload).object();
        const QString content = chunk.value(u"choices")
                                    .toArray()
                                    .first()
                                    .toObject()
                                    .value(u"delta")
                                    .toObject()
                                    .value(u"content")
                                    .toString();
        return content.isEmpty() || send(splitter.feed(content));
    };

    httplib::Request upstream;
    upstream.method = "POST";
    upstream.path = m_path;
    upstream.headers = {{"Accept", "text/event-stream"}};
    if (!m_config.apiKey.empty())
        upstream.headers.emplace("Authorization", "Bearer " + m_config.apiKey);
    upstream.body =
        QJsonDocument(chatRequest(request, modelName(request))).toJson(QJsonDocument::Compact).toStdString();
    upstream.headers.emplace("Content-Type", "application/json");
    upstream.response_handler = [&](const httplib::Response& response) {
        status = response.status;
        return true;
    };
    upstream.content_receiver = [&](const char* data, std::size_t size, std::uint64_t, std::uint64_t) {
        received += size;
        if (status != 200) {
            errorBody.append(
                data, std::min(size, MaxErrorBodyBytes - std::min(errorBody.size(), MaxErrorBodyBytes)));
            return received <= MaxErrorBodyBytes;
        }
        if (received > MaxAnswerBytes) {
            overflow = true;
            return false;
        }
        for (std::size_t i = 0; i < size; ++i) {
            if (data[i] != '\n') {
                line += data[i];
                if (line.size() > MaxLineBytes) {
                    overflow = true;
                    return false;
                }
                continue;
            }
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            const bool keepGoing = handleLine(line);
            line.clear();
            if (!keepGoing) {
                cancelled = true;
                return false;
            }
        }
        return true;
    };

    httplib::Response response;
    httplib::Error error = httplib::Error::Success;
    client.send(upstream, response, error);
    {
        std::lock_guard lock(m_mutex);
        m_active.erase(&client);
    }

    if (m_stopping)
        return BackendError{QStringLiteral("SHUTTING_DOWN"), QStringLiteral("The service is shutting down.")};
    if (cancelled)
        return BackendError{QStringLiteral("CANCELLED"), QStringLiteral("The lookup was cancelled.")};
    if (overflow)
        return BackendError{
            QStringLiteral("UPSTREAM_ERROR"),
            QStringLiteral("The language model service sent more than this service accepts.")};
    if (status != 0 && status != 200) {
        const QString detail = upstreamMessage(errorBody);
        return BackendError{QStringLiteral("UPSTREAM_ERROR"),
                            QStringLiteral("The language model service answered %1%2")
                                .arg(status)
                                .arg(detail.isEmpty() ? QStringLiteral(".") : QStringLiteral(": ") + detail)};
    }
    if (error == httplib::Error::Read)
        return BackendError{QStringLiteral("UPSTREAM_TIMEOUT"),
                            QStringLiteral("The language model service stopped answering.")};
    if (error != httplib::Error::Success)
        return BackendError{QStringLiteral("UPSTREAM_UNREACHABLE"),
                            QStringLiteral("The language model service cannot be reached (%1).")
                                .arg(QString::fromStdString(httplib::to_string(error)))};
    if (!line.empty() && !handleLine(line))
        return BackendError{QStringLiteral("CANCELLED"), QStringLiteral("The lookup was cancelled.")};
    if (!send(splitter.finish()))
        return BackendError{QStringLiteral("CANCELLED"), QStringLiteral("The lookup was cancelled.")};
    if (result.gloss.trimmed().isEmpty())
        return BackendError{QStringLiteral("UPSTREAM_ERROR"),
                            QStringLiteral("The language model service sent an empty answer.")};
    result.gloss = result.gloss.trimmed();
    result.contextualMeaning = result.contextualMeaning.trimmed();
    return result;
}
