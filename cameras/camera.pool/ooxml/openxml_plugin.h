#pragma once

#include "ooxml_pluginbase.h"

#include <QObject>

namespace Ooxml {

// The Office Open XML document family's plug-in. The message-id
// derivations ask the plug-in registered for XML documents (ft_xml) about
// every Word, Excel and PowerPoint package (camera 5), while the package
// camera registers Open Packaging containers; this plug-in answers those
// questions from the package camera's tables. It has no camera of its own:
// getCamera() gives null.
class OpenXml_family_pluginIF : public QObject, public OoxmlPluginBase
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VXCameraPluginIF_iid)
    Q_INTERFACES(VXCameraPluginIF)

public:
    VXCameraIF *getCamera() override;
    ft_t getRegisteredFileTypeEnum() override;
};

} // namespace Ooxml
