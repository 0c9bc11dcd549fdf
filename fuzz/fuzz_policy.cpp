// Policy documents are outside input: read them, ask every switch of every
// profile, export the text and write the keys back out.

#include "buffers/MemoryBuffer.h"
#include "policy/ContentManagement.h"

#include <QBuffer>

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
    return 0;
}
