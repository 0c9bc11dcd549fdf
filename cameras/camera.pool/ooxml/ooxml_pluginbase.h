#pragma once

#include "cameras/camera_interfaces.h"

namespace Ooxml {

// What both plug-ins of this folder answer alike: the message tables of
// ooxml_messages, and 0 to every file-type question (identifying files is
// left to the file identifier). Each plug-in adds its camera and the type
// it registers. Stateless.
class OoxmlPluginBase : public VXCameraPluginIF
{
public:
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
