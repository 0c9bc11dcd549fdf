#pragma once

#include "ooxml_pluginbase.h"

#include <QObject>

namespace Ooxml {

// The plug-in object of the Office Open XML camera: registered for Open
// Packaging containers (ft_opc), it hands out Ooxml_camera instances and
// answers the message ids of packages whose kind is not known yet.
class Ooxml_camera_pluginIF : public QObject, public OoxmlPluginBase
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VXCameraPluginIF_iid)
    Q_INTERFACES(VXCameraPluginIF)

public:
    // A new Ooxml_camera on every call; the caller owns it.
    VXCameraIF *getCamera() override;
    ft_t getRegisteredFileTypeEnum() override;
};

} // namespace Ooxml
