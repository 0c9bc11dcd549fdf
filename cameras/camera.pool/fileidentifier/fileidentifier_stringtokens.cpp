#include "fileidentifier_stringtokens.h"

namespace FileIdentifier {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

FileIdentifier_TokenMap_class FileIdentifier_TokenMap;

uint32_t FileIdentifier_TokenMap_class::getClassEnumFromStringIdentifier(std::string *name)
{
    if (name == nullptr)
        return 0;
    const auto known = m_idOfName.find(*name);
    if (known != m_idOfName.end())
        return known->second;
    const uint32_t id = static_cast<uint32_t>(m_idOfName.size()) + 1;
    m_idOfName.emplace(*name, id);
    m_nameOfId[id] = *name;
    return id;
}

std::string FileIdentifier_TokenMap_class::getStringClassFromEnumIdentifier(unsigned int id) const
{
    const auto known = m_nameOfId.find(id);
    return known != m_nameOfId.end() ? known->second : std::string();
}

void FileIdentifier_TokenMap_class::populateClassEnumTokenStringMaps() {}

void FileIdentifier_TokenMap_class::resetClassEnumTokenStringMaps()
{
    m_idOfName.clear();
    populateClassEnumTokenStringMaps();
}

uint32_t FileIdentifier_TokenMap_getClassEnumFromStringIdentifier(std::string *name)
{
    return FileIdentifier_TokenMap.getClassEnumFromStringIdentifier(name);
}

std::string FileIdentifier_TokenMap_getStringClassFromEnumIdentifier(unsigned int id)
{
    return FileIdentifier_TokenMap.getStringClassFromEnumIdentifier(id);
}

void FileIdentifier_TokenMap_Reset()
{
    FileIdentifier_TokenMap.resetClassEnumTokenStringMaps();
}

} // namespace FileIdentifier
