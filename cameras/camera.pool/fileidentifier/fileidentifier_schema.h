#pragma once

#include "ucp_engine/BDDLStructBase.h"

#include <cstdint>

// The file identifier's structure tree: a single root node that holds the
// input's bytes as they are, so that a file no other camera handles still
// goes through reading, validation and writing like any other document.
namespace FileIdentifier {

inline constexpr unsigned int FileIdentifierClassId = 27;

// The ids of the schema's item-name lookup. Only itemData is an item of the
// root class; the other names are kept for the cameras' shared vocabulary.
enum FileIdentifierItemId : int32_t {
    itemData = 1,
    itemFi = 2,
    itemScalarReadTestFlags = 3,
    itemZero = 4,
};

class FileIdentifier_class final : public BDDLStructBase_Root
{
public:
    FileIdentifier_class();
    ~FileIdentifier_class() override;

    // Takes in every byte from the input's cursor to its end; a failure or an
    // empty input sets the read flag (fileidentifier_preread).
    cameraStatus_t vir_readFromBuffer(context *ctx, BDDLStructBase *root, BDDLStructBase *parent) override;
    // Puts the bytes back out at the output's cursor, for a node that passes
    // the write check only.
    cameraStatus_t vir_writeToBuffer(context *ctx) override;
    // Records the group "FileIdentifier" and the issue "File is not supported";
    // answers the failure 128 (fileidentifier_validation).
    cameraStatus_t validate() override;
    BDDStructure *getBDDStructureDefinition() const override;
    const char *get_desc_string() const override;

    // The input's bytes; null until the first read. The schema's accessor
    // hands out this pointer's address, which is why it is a raw pointer: the
    // node owns whatever vector it points at, whoever made it.
    BDDScalarArray<vtUCharArray> *m_data = nullptr;
};

// The schema of the tree, built when the module is loaded.
BDDSchema *getFileIdentifierSchema();

} // namespace FileIdentifier
