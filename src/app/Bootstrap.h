#pragma once

#include "analysis/Moment.h"

#include <QString>
#include <QStringList>

#include <optional>

// The process entry. A diagnostic command ("analyze", "moments", "beatgrid", "summarize",
// "probe" followed by one argument) runs headless, prints its result and returns; anything else
// starts the application and returns when it quits.
namespace Bootstrap {

void main(int argc, char **argv);

// The diagnostic command the arguments (program first) ask for; empty to start the application.
QString diagnosticCommand(const QStringList &arguments);

// What --help and --version print.
QString usageText();
QString versionText();

// Output lines of the commands.
QString tempoText(std::optional<double> bpm);
QString momentLine(const Moment &moment);
QString categoryList(const QStringList &categories);

} // namespace Bootstrap
