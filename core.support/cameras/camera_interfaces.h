#pragma once

#include "cameras/filetype.h"
#include "ucp_engine/vxstatus.h"

#include <QMap>
#include <QtPlugin>

#include <cstdint>

class BDDLStructBase_Root;
class MemoryBuffer;
class MemoryBufferPool;
class ParameterBlock;
class UCPDocument;
namespace RepositoryComponents {
class DocumentAnalysis;
}

// The identifier every camera plug-in declares in its metadata and the name
// under which Qt's interface cast finds VXCameraPluginIF. A macro, because moc
// must be able to expand it inside Q_PLUGIN_METADATA(IID ...).
#define VXCameraPluginIF_iid "vx_core2_camera_interface_v0.8"

// A camera's table of analysis group ids: analysis item number to group id,
// the same mapping getAnalysisGroupID() answers one item at a time. The
// framework only passes the table on; its contents belong to the camera.
using AnalysisGroupIdMap_t = QMap<unsigned int, uint32_t>;

// One camera instance: initialised with a run's buffers, then run in one go
// (runCamera) or stage by stage. The caller owns it and calls
// deinitialiseCamera() before deleting it.
class VXCameraIF
{
public:
    virtual ~VXCameraIF();

    virtual VX2_RetStatus initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                           RepositoryComponents::DocumentAnalysis *analysis,
                                           MemoryBufferPool *pool, BDDLStructBase_Root **root) = 0;
    virtual VX2_RetStatus readInputBuffer() = 0;
    virtual VX2_RetStatus runValidation() = 0;
    virtual VX2_RetStatus writeOutputBuffer() = 0;
    virtual VX2_RetStatus runCamera() = 0;
    virtual VX2_RetStatus deinitialiseCamera() = 0;
    virtual ft_t getFileTypeFromProgID(const char *progId) = 0;
    virtual ft_t getFileTypeFromClassID(const char *classId) = 0;
    virtual ft_t getFileTypeFromFileExtension(const char *extension) = 0;
    // `reason` receives a static text the caller must not free; it may be null.
    virtual ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) = 0;
    // A new document view over the camera's tree; the caller deletes it.
    virtual UCPDocument *getUCPDocumentInterface() = 0;
    // Cameras without parameters keep this one, which ignores the block.
    virtual VX2_RetStatus initialiseParamBlock(ParameterBlock *block);
};

// The object a camera plug-in exports: asked about file types and message
// identifiers, and for camera instances. The slot order is the plug-in
// boundary's binary layout; add nothing in between.
class VXCameraPluginIF
{
public:
    virtual ~VXCameraPluginIF();

    // A new camera; the caller owns it.
    virtual VXCameraIF *getCamera() = 0;
    virtual ft_t getRegisteredFileTypeEnum() = 0;
    virtual ft_t getFileTypeFromFileExtension(const char *extension) = 0;
    // Main-type identification; `reason` as for VXCameraIF.
    virtual ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) = 0;
    // Container and archive kinds; `reason` as for VXCameraIF.
    virtual ft_t getSubTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) = 0;
    // Null when the camera has no table.
    virtual const AnalysisGroupIdMap_t *getAnalysisGroupIdMap() = 0;
    virtual uint32_t getErrMsgID(char *key) = 0;
    virtual uint32_t getSanitisationMsgID(char *key) = 0;
    virtual uint32_t getAnalysisGroupID(unsigned int item) = 0;
    // Builds the tables behind the three lookups above; 0 on success.
    virtual int initialiseIDLookups() = 0;
};

Q_DECLARE_INTERFACE(VXCameraPluginIF, VXCameraPluginIF_iid)
