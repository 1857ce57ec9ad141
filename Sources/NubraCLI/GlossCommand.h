#pragma once

#include <QStringList>

// nubra-cli gloss TEXT …: one lookup streamed to the terminal and stored as the card stores it.
namespace GlossCommand {

int run(const QStringList& arguments);

} // namespace GlossCommand
