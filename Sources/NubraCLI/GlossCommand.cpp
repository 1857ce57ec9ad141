#include "NubraCLI/GlossCommand.h"

#include "NubraCLI/CommandParser.h"
#include "NubraCLI/Console.h"
#include "NubraCLI/EventPrinter.h"
#include "NubraCLI/ExitCode.h"
#include "NubraCLI/HistoryLocation.h"
#include "NubraCLI/ServiceAddress.h"
#include "NubraCore/Lookup/LookupHistory.h"
#include "NubraCore/Lookup/LookupProgress.h"
#include "NubraCore/Lookup/SelectionLimit.h"
#include "NubraCore/Service/DeviceIdentity.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/GlossLookup.h"
#include "NubraCore/Settings/AppSettings.h"
#include "NubraCore/Support/Defaults.h"

#include <QEventLoop>

namespace GlossCommand {

namespace {

QCommandLineOption textOption(const char* name, const QString& description, const char* value) {
    return {QLatin1String(name), description, QLatin1String(value)};
}

// The choices of a vocabulary for the help text: "plain|academic|…".
template <typename E> QString choices() {
    QStringList raw;
    for (E value : allCases<E>())
        raw << rawValue(value);
    return raw.join(u'|');
}

// Reads a vocabulary option; the current setting when the option is absent.
template <typename E>
std::optional<E> vocabularyValue(CommandParser& command, const QCommandLineOption& option, E current) {
    if (!command.parser().isSet(option))
        return current;
    const QString value = command.parser().value(option);
    if (const auto parsed = fromRawValue<E>(value))
        return parsed;
    command.usageError(L10n::t(QStringLiteral("unknown value '"), QStringLiteral("未知取值 '")) + value +
                       L10n::t(QStringLiteral("' for --"), QStringLiteral("'，--")) +
                       option.names().constFirst() +
                       L10n::t(QStringLiteral(" takes "), QStringLiteral(" 可取 ")) + choices<E>());
    return std::nullopt;
}

} // namespace

int run(const QStringList& arguments) {
    CommandParser command(
        QStringLiteral("gloss"),
        L10n::t(QStringLiteral("Explain TEXT with the gloss service, streaming the answer."),
                QStringLiteral("用释义服务解释 TEXT，边收边显示。")));
    command.addPositional(QStringLiteral("TEXT"),
                          L10n::t(QStringLiteral("The text to explain (several words are joined by blanks)."),
                                  QStringLiteral("要解释的文本（多个词以空格连接）。")),
                          QStringLiteral("TEXT..."));
    const QCommandLineOption before = textOption(
        "before", L10n::t(QStringLiteral("Text just before TEXT."), QStringLiteral("TEXT 之前的上下文。")),
        "T");
    const QCommandLineOption after = textOption(
        "after", L10n::t(QStringLiteral("Text just after TEXT."), QStringLiteral("TEXT 之后的上下文。")),
        "T");
    const QCommandLineOption style = textOption(
        "style", L10n::t(QStringLiteral("Style: "), QStringLiteral("风格：")) + choices<GlossStyle>(), "S");
    const QCommandLineOption length = textOption(
        "length", L10n::t(QStringLiteral("Length: "), QStringLiteral("长度：")) + choices<GlossLength>(),
        "L");
    const QCommandLineOption lang = textOption(
        "lang",
        L10n::t(QStringLiteral("Output language sent to the service (\"auto\", \"en\", \"zh\", …)."),
                QStringLiteral("发给服务的输出语言（\"auto\"、\"en\"、\"zh\" 等）。")),
        "X");
    const QCommandLineOption tier = textOption(
        "tier", L10n::t(QStringLiteral("Model tier: "), QStringLiteral("模型档位：")) + choices<ModelTier>(),
        "T");
    const QCommandLineOption json(
        QStringLiteral("json"),
        L10n::t(QStringLiteral("Print each event as one compact JSON object per line."),
                QStringLiteral("每个事件输出为一行紧凑 JSON。")));
    const QCommandLineOption noHistory(QStringLiteral("no-history"),
                                       L10n::t(QStringLiteral("Do not store the lookup in the history."),
                                               QStringLiteral("不把本次查询写入历史记录。")));
    for (const auto& option : {before, after, style, length, lang, tier, json, noHistory})
        command.addOption(option);
    const ServiceAddress service(command);
    const HistoryLocation history(command);

    if (const auto exit = command.parse(arguments))
        return *exit;

    const QString text = command.parser().positionalArguments().join(u' ');
    if (text.isEmpty())
        return command.usageError(L10n::t(QStringLiteral("nothing to explain: TEXT is missing or empty."),
                                          QStringLiteral("没有要解释的内容：TEXT 缺失或为空。")));

    // The app's own settings are the defaults; options override them for this lookup only.
    SettingsDefaults defaults;
    AppSettings settings(defaults);
    settings.loadPersisted();
    const auto chosenStyle = vocabularyValue(command, style, settings.style());
    const auto chosenLength = vocabularyValue(command, length, settings.length());
    const auto chosenTier = vocabularyValue(command, tier, settings.modelTier());
    const auto baseUrl = service.resolve();
    if (!chosenStyle || !chosenLength || !chosenTier || !baseUrl)
        return ExitCode::usage;

    LookupProgress progress;
    if (const auto refusal = SelectionLimit::refusal(text)) {
        progress.refuse(*refusal);
        Console::err(*refusal + u'\n');
        return ExitCode::failed;
    }

    // Like the app, a history that cannot be opened does not stop the lookup.
    std::unique_ptr<HistoryStore> store;
    const bool record = settings.recordHistory() && !command.parser().isSet(noHistory);
    if (record)
        store = history.open();

    const GlossRequest request(
        text, command.parser().value(before), command.parser().value(after), std::nullopt, *chosenStyle,
        *chosenLength, command.parser().isSet(lang) ? command.parser().value(lang) : settings.outputLang(),
        *chosenTier);

    JsonEventPrinter jsonPrinter;
    TextEventPrinter textPrinter;
    EventPrinter& printer = command.parser().isSet(json) ? static_cast<EventPrinter&>(jsonPrinter)
                                                         : static_cast<EventPrinter&>(textPrinter);

    const GlossAPI api(*baseUrl, nubraDirectSession());
    progress.start();
    const std::unique_ptr<GlossLookup> lookup =
        api.gloss(request, std::nullopt, DeviceIdentity::platformUUID());
    QEventLoop loop;
    QObject::connect(lookup.get(), &GlossLookup::event, &loop, [&](const SSEEvent& event) {
        printer.print(event);
        if (const auto result = progress.apply(event); result && store)
            LookupHistory::persist(*store, true, settings.historyLimit(), request, *result,
                                   QDateTime::currentDateTimeUtc());
    });
    QObject::connect(lookup.get(), &GlossLookup::finished, &loop, [&] {
        progress.end();
        loop.quit();
    });
    QObject::connect(lookup.get(), &GlossLookup::failed, &loop, [&](const GlossAPIError& error) {
        progress.fail(error);
        loop.quit();
    });
    loop.exec();
    printer.end();

    if (progress.errorMessage()) {
        Console::err(*progress.errorMessage() + u'\n');
        return ExitCode::failed;
    }
    if (!progress.result()) {
        Console::err(L10n::t(QStringLiteral("The explanation ended before it was complete.\n"),
                             QStringLiteral("解释未完整结束。\n")));
        return ExitCode::failed;
    }
    return ExitCode::ok;
}

} // namespace GlossCommand
