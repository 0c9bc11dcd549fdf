#include "command.h"
#include "reporter.h"

#include "policy/ContentManagement.h"

#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>

namespace {

const QString kSystemGroup = QStringLiteral("sysConfig");

// One key of a policy file and what the policy makes of it.
struct PolicyLine
{
    QString profile;
    QString name;
    QString value;
    bool isSwitch = false;
    eVxContentManagementSetting setting = cmsUnknown;
    QString note;
};

bool isKnownSwitch(const QString &name)
{
    size_t count = 0;
    const ContentSwitch *all = contentSwitches(&count);
    return std::any_of(all, all + count,
                       [&](const ContentSwitch &s) { return name == QLatin1String(s.name); });
}

PolicyLine describe(ContentManagement &policy, const QString &key)
{
    PolicyLine line;
    const int slash = key.indexOf(QLatin1Char('/'));
    line.profile = slash < 0 ? QString() : key.left(slash);
    line.name = key.mid(slash + 1);
    line.value = policy.valueOf(key);
    if (line.profile == kSystemGroup)
        return line;
    line.isSwitch = true;
    line.setting = policy.getSetting(line.profile, line.name);
    if (ContentManagement::getProfileEnum(line.profile) == cfgUnknown)
        line.note = QStringLiteral("unknown profile");
    else if (!isKnownSwitch(line.name))
        line.note = QStringLiteral("unknown switch");
    else if (line.setting == cmsUnknown)
        line.note = QStringLiteral("not a setting: use allow, sanitise or disallow");
    return line;
}

QJsonObject toJson(const QString &path, const PolicyLine &line)
{
    QJsonObject object{{QStringLiteral("path"), path},
                       {QStringLiteral("profile"), line.profile},
                       {QStringLiteral("switch"), line.name},
                       {QStringLiteral("value"), line.value}};
    if (line.isSwitch) {
        object.insert(QStringLiteral("setting"), int(line.setting));
        object.insert(QStringLiteral("setting_name"), Lookup_setting::to_name(line.setting));
    }
    if (!line.note.isEmpty())
        object.insert(QStringLiteral("note"), line.note);
    return object;
}

int runPolicy(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    CommandArgs args(context.args);
    const QStringList operands = args.operands();
    if (!args.ok())
        return usageError(context, "policy", args.error());
    if (operands.size() != 1)
        return usageError(context, "policy", QStringLiteral("expects one policy file"));
    const QString path = operands.first();
    const QFileInfo info(path);
    if (!info.isFile()) {
        reporter.error(path, info.exists() ? QStringLiteral("not a regular file") : QStringLiteral("no such file"),
                       path);
        return 1;
    }
    if (info.size() == 0) {
        reporter.error(path, QStringLiteral("is empty"), path);
        return 1;
    }
    ContentManagement policy;
    if (policy.connectRepositoryToXMLFile(path) != 0) {
        reporter.error(path, QStringLiteral("cannot be read"), path);
        return 1;
    }
    const QStringList keys = policy.toStringList();
    if (policy.status() != QSettings::NoError) {
        reporter.error(path, QStringLiteral("not a policy document (XML with the root element \"config\")"), path);
        return 1;
    }

    // The table's columns fit the longest profile, switch and value. Lines
    // are described once to measure and again to print, so a policy of
    // millions of keys is never held a second time as lines.
    int widths[3] = {7, 6, 5};
    if (!reporter.json()) {
        for (const QString &key : keys) {
            const PolicyLine line = describe(policy, key);
            widths[0] = std::max(widths[0], int(line.profile.size()));
            widths[1] = std::max(widths[1], int(line.name.size()));
            widths[2] = std::max(widths[2], int(line.value.size()));
        }
    }
    const auto row = [&](const QString &a, const QString &b, const QString &c, const QString &d) {
        return QStringLiteral("%1  %2  %3  %4")
            .arg(a, -widths[0])
            .arg(b, -widths[1])
            .arg(c, -widths[2])
            .arg(d)
            .trimmed();
    };
    if (!reporter.json())
        reporter.text(row(QStringLiteral("PROFILE"), QStringLiteral("SWITCH"), QStringLiteral("VALUE"),
                          QStringLiteral("SETTING")));
    for (const QString &key : keys) {
        const PolicyLine line = describe(policy, key);
        QString setting = line.isSwitch ? Lookup_setting::to_name(line.setting) : QString();
        if (line.isSwitch && line.setting == cmsUnknown)
            setting = QStringLiteral("?");
        if (!line.note.isEmpty())
            setting += QStringLiteral("  (%1)").arg(line.note);
        reporter.result(toJson(path, line), row(line.profile, line.name, line.value, setting));
    }

    // What the policy means for tree interchange, defaults included.
    SerializationFormat format = sfSISL;
    bool pretty = false;
    policy.getSerializationFormat(format, pretty);
    const QString type = format == sfXML ? QStringLiteral("xml") : QStringLiteral("sisl");
    reporter.result(QJsonObject{{QStringLiteral("path"), path},
                                {QStringLiteral("interchange_type"), type},
                                {QStringLiteral("interchange_pretty"), pretty}},
                    QStringLiteral("interchange: %1%2").arg(type, pretty ? QStringLiteral(", pretty") : QString()));
    return 0;
}

const char kHelp[] =
    "Reads a content-management policy file and shows, key by key, what the\n"
    "policy makes of it, then the interchange form of serialised trees.\n"
    "\n"
    "arguments:\n"
    "  FILE  the policy: XML with the root element \"config\", in it one element\n"
    "        per profile (pdfConfig, wordConfig, pptConfig, xlsConfig, rtfConfig,\n"
    "        tiffConfig) holding one element per switch (macros,\n"
    "        metadata, embedded_images, ...) whose text is allow, sanitise or\n"
    "        disallow; sysConfig holds interchange_type (sisl or xml) and\n"
    "        interchange_pretty (true or false). A switch the policy leaves out\n"
    "        is sanitised. Documents with a DTD are refused.\n"
    "\n"
    "output:\n"
    "  a table PROFILE SWITCH VALUE SETTING, notes on unknown profiles, switches\n"
    "  and settings, then \"interchange: FORM\"; with --json one object per key\n"
    "  (path, profile, switch, value, setting, setting_name, note), then one\n"
    "  with interchange_type and interchange_pretty\n"
    "\n"
    "exit status:\n"
    "  0 shown, 1 the file is missing, empty or not a policy, 2 usage error\n";

const CommandRegistrar registration({"policy", "policy FILE", "show the profiles and switches of a policy file",
                                     runPolicy, kHelp});

} // namespace
