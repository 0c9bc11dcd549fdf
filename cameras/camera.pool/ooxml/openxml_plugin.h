#pragma once

#include "cameras/camera_interfaces.h"

#include <QObject>

namespace Ooxml {

// The Office Open XML document family's plug-in. The message-id
// derivations ask the plug-in registered for XML documents (ft_xml) about
// every Word, Excel and PowerPoint package (camera 5), while the package
// camera registers Open Packaging containers; this plug-in answers those
// questions from the package camera's tables. It has no camera of its own:
// getCamera() gives null, and every file-type question 0. Stateless.
class OpenXml_family_pluginIF : public QObject, public VXCameraPluginIF
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VXCameraPluginIF_iid)
    Q_INTERFACES(VXCameraPluginIF)

public:
    VXCameraIF *getCamera() override;
    ft_t getRegisteredFileTypeEnum() override;
    ft_t getFileTypeFromFileExtension(const char *extension) override;
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    ft_t getSubTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    const AnalysisGroupIdMap_t *getAnalysisGroupIdMap() override;
    uint32_t getErrMsgID(char *key) override;
    uint32_t getSanitisationMsgID(char *key) override;
    uint32_t getAnalysisGroupID(unsigned int item) override;
    int initialiseIDLookups() override;
};

} // namespace Ooxml
