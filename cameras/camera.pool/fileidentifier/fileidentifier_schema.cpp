#include "fileidentifier_schema.h"

#include "buffers/MemoryBuffer.h"

namespace FileIdentifier {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const char *const kDescription = "FileIdentifier";

const int32_t kDataTypeList[] = {1, 0};

BDDItem fileIdentifierItems[] = {
    {itemData, {}, kDataTypeList, bddFieldAccessor<&FileIdentifier_class::m_data, vtUCharArray>},
    {0, {}, nullptr, nullptr},
};

BDDStructure fileIdentifierStructure = {static_cast<int32_t>(FileIdentifierClassId), fileIdentifierItems, {}};

BDDStructure *fileIdentifierStructures[] = {&fileIdentifierStructure, nullptr};

BDDSchema fileIdentifierSchema = {
    {{itemData, "data"}, {itemFi, "fi"}, {itemScalarReadTestFlags, "scalarReadTestFlags"}, {itemZero, "0"}},
    fileIdentifierStructures,
    {},
};

} // namespace

FileIdentifier_class::FileIdentifier_class()
{
    m_classId = static_cast<int32_t>(FileIdentifierClassId);
    m_description = kDescription;
}

FileIdentifier_class::~FileIdentifier_class()
{
    delete m_data;
}

BDDStructure *FileIdentifier_class::getBDDStructureDefinition() const
{
    return &fileIdentifierStructure;
}

const char *FileIdentifier_class::get_desc_string() const
{
    return kDescription;
}

cameraStatus_t FileIdentifier_class::vir_writeToBuffer(context *ctx)
{
    // The check comes first: a node never validated is reported even when
    // there would be nothing to write.
    if (!ucpNodeOkToWrite(this))
        return 0;
    MemoryBuffer *const output = ctx ? ctx->m_outputBuffer : nullptr;
    if (output == nullptr || m_data == nullptr || m_data->empty())
        return 0;
    output->putRawBytes(m_data->data(), m_data->size());
    return 0;
}

BDDSchema *getFileIdentifierSchema()
{
    return &fileIdentifierSchema;
}

} // namespace FileIdentifier
