#pragma once

// Runs of the Office Open XML camera through a session over the build's
// plug-in folder, and an independent look at the packages it writes.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "containers/ZipUtils.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"
#include "testcamera.h"

#include <QMap>
#include <QStringList>
#include <QUrl>
#include <QXmlStreamReader>

#include <memory>

namespace ooxmltest {

inline Camera_Pool &pluginPool()
{
    static Camera_Pool pool{QStringLiteral(VX_PLUGIN_DIR)};
    return pool;
}

inline const char *const kSwitches[] = {"macros", "embedded_files", "external_hyperlinks",
                                        "metadata", "review_comments", "embedded_images"};

// A policy with every switch of the three Office profiles at `others`, and
// `name` at `setting`.
inline QByteArray policyXml(const QString &name, const QString &setting, const QString &others = "allow")
{
    QByteArray xml = "<config>";
    for (const char *profile : {"wordConfig", "xlsConfig", "pptConfig"}) {
        xml += QByteArray("<") + profile + ">";
        for (const char *s : kSwitches) {
            const QString value = name == QLatin1String(s) ? setting : others;
            xml += QStringLiteral("<%1>%2</%1>").arg(QLatin1String(s), value).toUtf8();
        }
        xml += QByteArray("</") + profile + ">";
    }
    return xml + "</config>";
}

// One disarm: the package through a session's camera, in one call.
struct Disarm
{
    VX2_RetStatus status = VX2_Fail;
    QByteArray output;
    QStringList records; // as testcamera::recordsOf lists them
    QByteArray report;   // the session's XML report
};

inline Disarm disarm(const QByteArray &package, const QByteArray &policy)
{
    CameraBase session(&pluginPool());
    MemoryBuffer policyBuffer = bufferOf(policy);
    session.contentManagement().loadRepositoryFromXML(&policyBuffer);
    MemoryBuffer input = bufferOf(package);
    input.m_name = "package";
    MemoryBuffer output;
    Disarm result;
    result.status = session.pushCamera(&input, &output, ft_opc, nullptr);
    result.output = bytesOf(output);
    result.records = testcamera::recordsOf(session.analysis());
    if (session.dumpAnalysisToBuffer())
        result.report = bytesOf(*session.analysisBuffer());
    return result;
}

// A package as an independent reader sees it: members in order, the
// content-type list and every relationship with its resolved target.
struct Package
{
    QStringList members;
    QMap<QString, QByteArray> bytes;
    QMap<QString, QString> defaults;  // extension -> type
    QMap<QString, QString> overrides; // part name -> type
    struct Relationship
    {
        QString source, type, target, mode;
    };
    QList<Relationship> relationships;

    bool isPart(const QString &name) const
    {
        return name != QLatin1String("[Content_Types].xml") && !name.endsWith(QLatin1String(".rels"));
    }
    QStringList parts() const
    {
        QStringList list;
        for (const QString &m : members)
            if (isPart(m))
                list << m;
        return list;
    }
    QString contentType(const QString &part) const
    {
        if (overrides.contains(part))
            return overrides.value(part);
        return defaults.value(part.mid(part.lastIndexOf('.') + 1).toLower());
    }
    // Internal targets resolve against the source's folder.
    static QString resolve(const QString &source, const QString &target)
    {
        const QString path = QUrl::fromPercentEncoding(target.toUtf8());
        QStringList segments = path.startsWith('/') ? QStringList() : source.split('/');
        if (!path.startsWith('/'))
            segments.removeLast();
        for (const QString &step : path.split('/', Qt::SkipEmptyParts))
            step == QLatin1String("..") ? segments.removeLast() : void(segments << step);
        return segments.join('/');
    }
    // What makes the package invalid; empty when it is sound.
    QStringList problems() const
    {
        QStringList found;
        if (members.value(0) != QLatin1String("[Content_Types].xml"))
            found << "the content-type list is not the first member";
        for (const QString &part : parts())
            if (contentType(part).isEmpty())
                found << "no content type: " + part;
        for (const Relationship &r : relationships)
            if (r.mode != QLatin1String("External") && !bytes.contains(resolve(r.source, r.target)))
                found << "missing target: " + r.target + " of " + r.source;
        return found;
    }
    bool hasRelationshipType(const QString &suffix) const
    {
        for (const Relationship &r : relationships)
            if (r.type.endsWith('/' + suffix))
                return true;
        return false;
    }
    int externalCount() const
    {
        int n = 0;
        for (const Relationship &r : relationships)
            n += r.mode == QLatin1String("External");
        return n;
    }
};

inline void readXml(const QByteArray &xml, const std::function<void(const QXmlStreamReader &)> &element)
{
    QXmlStreamReader reader(xml);
    while (!reader.atEnd())
        if (reader.readNext() == QXmlStreamReader::StartElement)
            element(reader);
}

inline Package inspect(const QByteArray &zipBytes)
{
    Package package;
    MemoryBuffer buffer = bufferOf(zipBytes);
    ZipUtils::Unzip zip;
    if (!zip.openInPlace(&buffer))
        return package;
    package.members = zip.getFilenames();
    for (const QString &name : package.members)
        zip.getEntryData(name, package.bytes[name]);
    readXml(package.bytes.value("[Content_Types].xml"), [&](const QXmlStreamReader &r) {
        const auto a = r.attributes();
        if (r.name() == QLatin1String("Default"))
            package.defaults.insert(a.value("Extension").toString().toLower(), a.value("ContentType").toString());
        if (r.name() == QLatin1String("Override"))
            package.overrides.insert(a.value("PartName").toString().mid(1), a.value("ContentType").toString());
    });
    for (const QString &name : package.members) {
        if (!name.endsWith(QLatin1String(".rels")))
            continue;
        const int cut = name.lastIndexOf(QLatin1String("_rels/"));
        const QString source = name.left(cut) + name.mid(cut + 6).chopped(5);
        readXml(package.bytes.value(name), [&](const QXmlStreamReader &r) {
            const auto a = r.attributes();
            if (r.name() == QLatin1String("Relationship"))
                package.relationships.append({source, a.value("Type").toString(), a.value("Target").toString(),
                                              a.value("TargetMode").toString()});
        });
    }
    return package;
}

} // namespace ooxmltest
