#pragma once

#include <QString>
#include <QStringList>

#include <initializer_list>
#include <vector>

class Reporter;

// What every subcommand receives: its own arguments (after the subcommand
// name, its own options still among them) and the global options.
struct CommandContext
{
    QStringList args;
    bool recursive = false;
    QString pluginDir;
    Reporter &reporter;
    // --verbose: the framework's log on standard error, and more detail
    // where a command has it.
    bool verbose = false;
};

struct Command
{
    const char *name;
    const char *synopsis;
    const char *summary;
    int (*run)(CommandContext &context);
    // The subcommand's arguments and options, one per line, shown by
    // "vxcam help NAME" and "vxcam NAME --help" under its synopsis.
    const char *help = nullptr;
};

// The registered subcommands, sorted by name.
const std::vector<Command> &commands();

// Each subcommand's file registers it with a static CommandRegistrar, so
// adding a command touches no other file.
struct CommandRegistrar
{
    explicit CommandRegistrar(const Command &command);
};

// A subcommand's own options, taken out of its arguments one by one; what is
// left are its operands. Options may stand anywhere before "--"; a value is
// given as "--name VALUE" or "--name=VALUE".
class CommandArgs
{
public:
    explicit CommandArgs(QStringList args) : m_args(std::move(args)) {}

    // Whether any of the names was given; every occurrence is taken out.
    bool takeFlag(std::initializer_list<const char *> names);
    // The value of the last occurrence of any of the names, or false when
    // none was given. A name without its value is a usage error.
    bool takeValue(std::initializer_list<const char *> names, QString &value);
    // What is left, with "--" removed. Any option left over is a usage error.
    QStringList operands();

    // Empty while the arguments are well formed; otherwise the first problem,
    // in words for the user.
    const QString &error() const { return m_error; }
    bool ok() const { return m_error.isEmpty(); }

private:
    QStringList m_args;
    QString m_error;
};

// Reports a usage error of the command on one line and gives exit status 2.
int usageError(CommandContext &context, const char *command, const QString &message);
