#pragma once

// Exports a camera plug-in class from its module: Qt's two entry points and
// the metadata that the camera pool reads before loading the module, with
// the interface identifier, the class name and an empty "MetaData" object.
// moc writes the same entry points for Q_PLUGIN_METADATA, but leaves an
// empty "MetaData" object out; a host that checks for the key finds it here.
//
// In the module's source, at namespace scope, once:
//     VX_EXPORT_CAMERA_PLUGIN(MyNamespace::MyPlugin, "MyPlugin")
// The class keeps Q_OBJECT and Q_INTERFACES(VXCameraPluginIF), and has no
// Q_PLUGIN_METADATA.

#include "cameras/camera_interfaces.h"

#include <QObject>
#include <QPointer>
#include <QtPlugin>

#include <cstddef>

namespace VxPluginMetaData {

// Qt's binary form: a fixed header, then a CBOR map with the keys 2 (IID),
// 3 (className) and 4 (MetaData). Both texts are between 24 and 255 bytes
// long, so each takes a two-byte CBOR header.
template <std::size_t IidSize, std::size_t NameSize>
struct Bytes
{
    static constexpr std::size_t kHeader = 16;
    static constexpr std::size_t kSize = kHeader + 1 + (1 + 2 + IidSize - 1) + (1 + 2 + NameSize - 1) + 2 + 1;
    unsigned char data[kSize];
};

template <std::size_t IidSize, std::size_t NameSize>
constexpr Bytes<IidSize, NameSize> make(const char (&iid)[IidSize], const char (&name)[NameSize])
{
    static_assert(IidSize - 1 >= 24 && IidSize - 1 < 256, "the IID needs a two-byte CBOR text header");
    static_assert(NameSize - 1 >= 24 && NameSize - 1 < 256, "the class name needs a two-byte CBOR text header");
    Bytes<IidSize, NameSize> out{};
    std::size_t at = 0;
    for (char c : "QTMETADATA !")
        if (c != '\0')
            out.data[at++] = static_cast<unsigned char>(c);
    out.data[at++] = 0; // metadata version
    out.data[at++] = QT_VERSION_MAJOR;
    out.data[at++] = QT_VERSION_MINOR;
    out.data[at++] = qPluginArchRequirements();
    out.data[at++] = 0xbf; // a map of indefinite length
    const auto text = [&](unsigned char key, const char *value, std::size_t length) {
        out.data[at++] = key;
        out.data[at++] = 0x78; // a text string with a one-byte length
        out.data[at++] = static_cast<unsigned char>(length);
        for (std::size_t i = 0; i < length; ++i)
            out.data[at++] = static_cast<unsigned char>(value[i]);
    };
    text(0x02, iid, IidSize - 1);
    text(0x03, name, NameSize - 1);
    out.data[at++] = 0x04;
    out.data[at++] = 0xa0; // MetaData: an empty map
    out.data[at++] = 0xff;
    return out;
}

} // namespace VxPluginMetaData

#define VX_EXPORT_CAMERA_PLUGIN(PLUGINCLASS, CLASSNAME)                                                      \
    QT_PLUGIN_METADATA_SECTION static constexpr auto qt_pluginMetaData =                                     \
        VxPluginMetaData::make(VXCameraPluginIF_iid, CLASSNAME);                                             \
    extern "C" Q_DECL_EXPORT const char *qt_plugin_query_metadata()                                          \
    {                                                                                                        \
        return reinterpret_cast<const char *>(qt_pluginMetaData.data);                                       \
    }                                                                                                        \
    extern "C" Q_DECL_EXPORT QObject *qt_plugin_instance() Q_PLUGIN_INSTANCE(PLUGINCLASS)
