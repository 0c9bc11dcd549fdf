#pragma once

#include "cameras/camera_interfaces.h"

#include <QObject>

#include <cstdint>
#include <memory>

struct context;

namespace FileIdentifier {

class FileIdentifier_class;

// The file identifier's answer to an extension: 783 (ft_fileidentifier) for
// "fi" in any letter case, read as Latin-1; 0 otherwise, and for null.
ft_t fileTypeFromAcceptedExtension(const char *extension);

// The message-id lookups behind the plug-in: this camera has no messages,
// groups or tables, so every id is 0 and building the lookups does nothing.
uint32_t fileidentifier_getErrMsgID(char *key);
uint32_t fileidentifier_getSanitisationMsgID(char *key);
uint32_t fileidentifier_getAnalysisGroupID(unsigned int item);
int fileidentifier_initialiseIDLookups();

// The camera of the file identifier. Its tree is one root holding the input's
// bytes: reading takes them in, validation reports the file as not supported,
// and writing puts them back out only for a root that passed the write check,
// which this camera's own validation never grants. Stages called before
// initialiseCamera() answer -1 and touch nothing.
class FileIdentifier_camera final : public VXCameraIF
{
public:
    FileIdentifier_camera();
    ~FileIdentifier_camera() override;

    FileIdentifier_camera(const FileIdentifier_camera &) = delete;
    FileIdentifier_camera &operator=(const FileIdentifier_camera &) = delete;

    // -1 when the root cannot be made or there is no input. A second call
    // starts a new run: the earlier root is released.
    VX2_RetStatus initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                   RepositoryComponents::DocumentAnalysis *analysis, MemoryBufferPool *pool,
                                   BDDLStructBase_Root **root) override;
    // 0, or -2 when nothing could be read.
    VX2_RetStatus readInputBuffer() override;
    // 0 after reporting the file as not supported; -1 when validation threw.
    VX2_RetStatus runValidation() override;
    // 0; -1 when writing or reporting the refusal failed.
    VX2_RetStatus writeOutputBuffer() override;
    // Logs the input and answers -1: this camera does no whole runs.
    VX2_RetStatus runCamera() override;
    VX2_RetStatus deinitialiseCamera() override;

    ft_t getFileTypeFromProgID(const char *progId) override;
    ft_t getFileTypeFromClassID(const char *classId) override;
    ft_t getFileTypeFromFileExtension(const char *extension) override;
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    // Throws the C string "getUCPDocumentInterface called before FileIdentifier
    // initialised" before initialiseCamera().
    UCPDocument *getUCPDocumentInterface() override;

private:
    bool initialised() const { return m_root != nullptr && m_context != nullptr; }
    // The four lines that start readInputBuffer() and runCamera().
    void logInput() const;

    std::unique_ptr<FileIdentifier_class> m_root;
    std::unique_ptr<context> m_context;
};

// The plug-in object of the module, found by the camera pool through Qt's
// plug-in loader. It registers ft_fileidentifier, answers the sub-type
// question with the archive identification and hands out cameras. Stateless.
class FileIdentifier_camera_pluginIF : public QObject, public VXCameraPluginIF
{
    Q_OBJECT
    // Exported with VX_EXPORT_CAMERA_PLUGIN: its metadata holds an empty
    // "MetaData" object, which Q_PLUGIN_METADATA would leave out.
    Q_INTERFACES(VXCameraPluginIF)

public:
    // A new FileIdentifier_camera on every call; the caller owns it.
    VXCameraIF *getCamera() override;
    ft_t getRegisteredFileTypeEnum() override;
    ft_t getFileTypeFromFileExtension(const char *extension) override;
    // Always 0: the file identifier is nobody's main type. The buffer and the
    // reason are left alone.
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    // The archive kinds 256 to 261 (zip, gzip, bzip2, 7-Zip, RAR, tar), else 0.
    ft_t getSubTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    // Null: there is no table.
    const AnalysisGroupIdMap_t *getAnalysisGroupIdMap() override;
    uint32_t getErrMsgID(char *key) override;
    uint32_t getSanitisationMsgID(char *key) override;
    uint32_t getAnalysisGroupID(unsigned int item) override;
    int initialiseIDLookups() override;
};

} // namespace FileIdentifier
