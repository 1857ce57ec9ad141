#pragma once

#include <QStringList>

// nubra-cli update-check: asks the service for the latest release and prints what the app would do.
namespace UpdateCheckCommand {

int run(const QStringList& arguments);

} // namespace UpdateCheckCommand
