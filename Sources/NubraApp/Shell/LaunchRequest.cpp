#include "NubraApp/Shell/LaunchRequest.h"

#include <array>

using Action = LaunchRequest::Action;

namespace {

struct ActionName {
    Action action;
    QStringView name;
};

const std::array<ActionName, 8> actionNames = {{
    {Action::reopen, u"reopen"},
    {Action::history, u"history"},
    {Action::settings, u"settings"},
    {Action::pause, u"pause"},
    {Action::resume, u"resume"},
    {Action::lookup, u"lookup"},
    {Action::ocr, u"ocr"},
    {Action::quit, u"quit"},
}};

} // namespace

QString nameOf(Action action) {
    for (const ActionName& entry : actionNames) {
        if (entry.action == action)
            return entry.name.toString();
    }
    return {};
}

std::optional<Action> actionNamed(QStringView name) {
    for (const ActionName& entry : actionNames) {
        if (entry.name == name)
            return entry.action;
    }
    return std::nullopt;
}
