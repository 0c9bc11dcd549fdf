#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace FileIdentifier {

// Token ids for the names met while reading: ids count 1, 2, 3 ... in the
// order names are first seen. One instance serves the whole process and every
// camera run starts by resetting it, so two runs must not overlap.
class FileIdentifier_TokenMap_class
{
public:
    // The name's id; a new name gets (number of names known) + 1.
    uint32_t getClassEnumFromStringIdentifier(std::string *name);
    // The id's name, or an empty string.
    std::string getStringClassFromEnumIdentifier(unsigned int id) const;
    // This camera has no predefined tokens.
    void populateClassEnumTokenStringMaps();
    // Forgets the names, so ids start again from 1. The id-to-name table keeps
    // its entries until new names take their ids over.
    void resetClassEnumTokenStringMaps();

private:
    std::unordered_map<std::string, uint32_t> m_idOfName;
    std::unordered_map<uint32_t, std::string> m_nameOfId;
};

extern FileIdentifier_TokenMap_class FileIdentifier_TokenMap;

// The reading context's entry points over FileIdentifier_TokenMap. A null
// name has id 0.
uint32_t FileIdentifier_TokenMap_getClassEnumFromStringIdentifier(std::string *name);
std::string FileIdentifier_TokenMap_getStringClassFromEnumIdentifier(unsigned int id);
void FileIdentifier_TokenMap_Reset();

} // namespace FileIdentifier
