#include "NubraApp/Shell/LaunchMessage.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <algorithm>

using Action = LaunchRequest::Action;

namespace LaunchMessage {

namespace {

constexpr char magic[] = {'N', 'B', 'R', 'Q'};

} // namespace

QByteArray encode(const LaunchRequest& request) {
    QJsonObject object{{QStringLiteral("action"), nameOf(request.action)}};
    if (request.action == Action::settings && request.settingsTab)
        object.insert(QStringLiteral("tab"), settingsTabName(*request.settingsTab));
    const QByteArray payload = QJsonDocument(object).toJson(QJsonDocument::Compact);

    QByteArray frame(magic, sizeof magic);
    frame.append(char(version));
    frame.append(char((payload.size() >> 8) & 0xff));
    frame.append(char(payload.size() & 0xff));
    return frame + payload;
}

Decoded decode(QByteArrayView bytes) {
    using Status = Decoded::Status;
    const auto invalid = Decoded{Status::invalid, std::nullopt};

    // Check each byte as soon as it is there, so garbage is refused without waiting for more.
    const QByteArrayView expected(magic, sizeof magic);
    if (!expected.startsWith(bytes.first(std::min(bytes.size(), expected.size()))))
        return invalid;
    if (bytes.size() <= expected.size())
        return {};
    if (quint8(bytes.at(4)) != version)
        return {Status::unsupportedVersion, std::nullopt};
    if (bytes.size() < headerSize)
        return {};

    const qsizetype length = (qsizetype(quint8(bytes.at(5))) << 8) | quint8(bytes.at(6));
    if (length == 0 || length > maxPayload || bytes.size() > headerSize + length)
        return invalid;
    if (bytes.size() < headerSize + length)
        return {};

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes.sliced(headerSize).toByteArray(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return invalid;
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it.key() != u"action" && it.key() != u"tab")
            return invalid;
        if (!it.value().isString())
            return invalid;
    }

    const std::optional<Action> action = actionNamed(object.value(u"action").toString());
    if (!action)
        return invalid;
    LaunchRequest request;
    request.action = *action;
    if (object.contains(u"tab")) {
        if (*action != Action::settings)
            return invalid;
        request.settingsTab = settingsTabFrom(object.value(u"tab").toString());
        if (!request.settingsTab)
            return invalid;
    }
    return {Status::complete, request};
}

} // namespace LaunchMessage
