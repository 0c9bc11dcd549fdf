#pragma once

#include <QString>
#include <QStringList>

#include <vector>

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

// The registered subcommands, sorted by name.
const std::vector<Command> &commands();

// Each subcommand's file registers it with a static CommandRegistrar, so
// adding a command touches no other file.
struct CommandRegistrar
{
    explicit CommandRegistrar(const Command &command);
};
