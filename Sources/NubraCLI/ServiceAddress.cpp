#include "NubraCLI/ServiceAddress.h"

#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Vocabulary/L10n.h"

ServiceAddress::ServiceAddress(CommandParser& command)
    : m_command(command), m_baseUrl(QStringLiteral("base-url"),
                                    L10n::t(QStringLiteral("Gloss service address (http:// or https://)."),
                                            QStringLiteral("释义服务地址（http:// 或 https://）。")),
                                    QStringLiteral("URL")),
      m_dev(QStringLiteral("dev"),
            L10n::t(QStringLiteral("Use the development service at ") +
                        QLatin1String(GlossAPI::developmentBaseURL) + u'.',
                    QStringLiteral("使用开发服务 ") + QLatin1String(GlossAPI::developmentBaseURL) + u'。')) {
    command.addOption(m_baseUrl);
    command.addOption(m_dev);
}

std::optional<QUrl> ServiceAddress::resolve() const {
    const QCommandLineParser& parser = m_command.parser();
    if (!parser.isSet(m_baseUrl))
        return parser.isSet(m_dev) ? GlossAPI::makeBaseURL(true) : GlossAPI::configuredBaseURL(false);
    if (parser.isSet(m_dev)) {
        m_command.usageError(L10n::t(QStringLiteral("--base-url and --dev exclude each other."),
                                     QStringLiteral("--base-url 与 --dev 不能同时使用。")));
        return std::nullopt;
    }
    const QString text = parser.value(m_baseUrl);
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != u"http" && url.scheme() != u"https")) {
        m_command.usageError(L10n::t(QStringLiteral("not a usable service address: ") + text,
                                     QStringLiteral("无法使用的服务地址：") + text));
        return std::nullopt;
    }
    return url;
}
