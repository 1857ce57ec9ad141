#pragma once

#include <QJsonObject>
#include <QString>

#include <string>

// The JSON bodies of the answers outside the event stream.
namespace Envelope {

// {"ok":true,"data":<data>}
std::string success(const QJsonObject& data);
// {"ok":false,"error":{"code":<code>,"message":<message>}}
std::string failure(const QString& code, const QString& message);

} // namespace Envelope
