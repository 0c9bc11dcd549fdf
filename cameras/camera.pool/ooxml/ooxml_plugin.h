#pragma once

#include "cameras/camera_interfaces.h"

#include <QObject>

namespace Ooxml {

// The plug-in object of the Office Open XML camera: registered for Open
// Packaging containers (ft_opc), it hands out Ooxml_camera instances and
// answers the message ids of packages whose kind is not known yet.
// Identifying files is left to the file identifier: every file-type
// question is answered with 0. Stateless.
class Ooxml_camera_pluginIF : public QObject, public VXCameraPluginIF
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VXCameraPluginIF_iid)
    Q_INTERFACES(VXCameraPluginIF)

public:
    // A new Ooxml_camera on every call; the caller owns it.
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
