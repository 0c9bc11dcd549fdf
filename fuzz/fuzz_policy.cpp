// Policy documents are outside input: read them, ask every switch of every
// profile, export the text and write the keys back out. The store of a policy
// loaded from memory and the settings format's reader must agree on every key.

#include "buffers/MemoryBuffer.h"
#include "policy/ContentManagement.h"

#include <QBuffer>
#include <QByteArray>
#include <QtGlobal>

namespace {
void ignoreMessages(QtMsgType, const QMessageLogContext &, const QString &) {}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qInstallMessageHandler(ignoreMessages);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MemoryBuffer buffer;
    buffer.putRawBytes(data, size);
    buffer.seek(0, MBSeekStart);

    ContentManagement policy;
    policy.loadRepositoryFromXML(&buffer);
    size_t count = 0;
    const ContentSwitch *switches = contentSwitches(&count);
    for (int profile = cfgSystem; profile <= cfgTiffConfig; ++profile)
        for (size_t i = 0; i < count; ++i)
            switches[i].read(static_cast<eVxConfigType>(profile), policy);
    SerializationFormat format = sfSISL;
    bool pretty = false;
    policy.getSerializationFormat(format, pretty);
    MemoryBuffer exported;
    policy.exportRepositoryAsXML(&exported);

    QSettings::SettingsMap map;
    for (const QString &key : policy.toStringList())
        map.insert(key, policy.valueOf(key));
    QByteArray bytes;
    QBuffer device(&bytes);
    device.open(QIODevice::WriteOnly);
    ContentManagement::writeSettingsXml(device, map);

    QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    QBuffer source(&input);
    source.open(QIODevice::ReadOnly);
    QSettings::SettingsMap read;
    const bool ok = ContentManagement::readSettingsXml(source, read);
    if (ok != (policy.status() == QSettings::NoError) || read != map)
        __builtin_trap();
    return 0;
}
