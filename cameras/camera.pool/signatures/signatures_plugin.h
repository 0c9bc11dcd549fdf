#pragma once

#include "cameras/camera_interfaces.h"

#include <QObject>

namespace Signatures {

// The plug-in object of the signatures module. It answers the pool's
// main-type question from the signatures of the registry's content types
// (see signatures.h) and nothing else: it registers no file type of its own
// and hands out no camera, so that the camera of each type is always the
// plug-in made for it. Stateless.
class Signatures_camera_pluginIF : public QObject, public VXCameraPluginIF
{
    Q_OBJECT
    // Exported with VX_EXPORT_CAMERA_PLUGIN, like the file identifier.
    Q_INTERFACES(VXCameraPluginIF)

public:
    // Null: this plug-in only identifies.
    VXCameraIF *getCamera() override;
    // ft_unknown: no type is this plug-in's to handle.
    ft_t getRegisteredFileTypeEnum() override;
    // ft_unknown: names are for the registry to judge.
    ft_t getFileTypeFromFileExtension(const char *extension) override;
    // The type the buffer's bytes (all of them, from 0) start with, or
    // ft_unknown. The buffer and its cursor are left alone; the reason is
    // set only with an answer.
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    // ft_unknown: container kinds are the file identifier's question.
    ft_t getSubTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    const AnalysisGroupIdMap_t *getAnalysisGroupIdMap() override;
    uint32_t getErrMsgID(char *key) override;
    uint32_t getSanitisationMsgID(char *key) override;
    uint32_t getAnalysisGroupID(unsigned int item) override;
    int initialiseIDLookups() override;
};

} // namespace Signatures
