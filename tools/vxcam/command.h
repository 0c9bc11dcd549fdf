#pragma once

#include <QString>
#include <QStringList>

class Reporter;

// What every subcommand receives: its own arguments (after the subcommand
// name) and the global options.
struct CommandContext
{
    QStringList args;
    bool recursive = false;
    QString pluginDir;
    Reporter &reporter;
};

struct Command
{
    const char *name;
    const char *synopsis;
    const char *summary;
    int (*run)(CommandContext &context);
};

int runIdentify(CommandContext &context);
