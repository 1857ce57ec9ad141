#pragma once

#include <QStringList>

// nubra-cli history list | search | count | clear | export: the history without the app.
namespace HistoryCommand {

int run(const QStringList& arguments);

} // namespace HistoryCommand
