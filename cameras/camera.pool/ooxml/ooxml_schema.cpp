#include "ooxml_schema.h"

#include <QtAlgorithms>

namespace Ooxml {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const int32_t kTypeList[] = {1, 0};
constexpr BDDItem kEnd = {0, {}, nullptr, nullptr};

BDDItem packageItems[] = {
    {itemDefaults, {}, kTypeList, bddFieldAccessor<&OoxmlPackage::m_defaults, vtStructureArray>},
    {itemParts, {}, kTypeList, bddFieldAccessor<&OoxmlPackage::m_parts, vtStructureArray>},
    {itemRelationships, {}, kTypeList, bddFieldAccessor<&OoxmlPackage::m_relationships, vtStructureArray>},
    kEnd,
};
BDDItem defaultItems[] = {
    {itemExtension, {}, kTypeList, bddFieldAccessor<&OoxmlDefault::m_extension, vtString>},
    {itemContentType, {}, kTypeList, bddFieldAccessor<&OoxmlDefault::m_contentType, vtString>},
    kEnd,
};
BDDItem partItems[] = {
    {itemName, {}, kTypeList, bddFieldAccessor<&OoxmlPart::m_name, vtString>},
    {itemContentType, {}, kTypeList, bddFieldAccessor<&OoxmlPart::m_contentType, vtString>},
    {itemSize, {}, kTypeList, bddFieldAccessor<&OoxmlPart::m_partSize, vtUInt>},
    {itemData, {}, kTypeList, bddFieldAccessor<&OoxmlPart::m_data, vtUCharArray>},
    {itemDisposition, {}, kTypeList, bddFieldAccessor<&OoxmlPart::m_disposition, vtUChar>},
    {itemOutputContentType, {}, kTypeList, bddFieldAccessor<&OoxmlPart::m_outputContentType, vtString>},
    kEnd,
};
BDDItem relationshipItems[] = {
    {itemSource, {}, kTypeList, bddFieldAccessor<&OoxmlRelationship::m_source, vtString>},
    {itemId, {}, kTypeList, bddFieldAccessor<&OoxmlRelationship::m_id, vtString>},
    {itemType, {}, kTypeList, bddFieldAccessor<&OoxmlRelationship::m_type, vtString>},
    {itemTarget, {}, kTypeList, bddFieldAccessor<&OoxmlRelationship::m_target, vtString>},
    {itemTargetMode, {}, kTypeList, bddFieldAccessor<&OoxmlRelationship::m_targetMode, vtString>},
    {itemDisposition, {}, kTypeList, bddFieldAccessor<&OoxmlRelationship::m_disposition, vtUChar>},
    kEnd,
};

BDDStructure structureList[] = {
    {PackageClassId, packageItems, {}},
    {DefaultClassId, defaultItems, {}},
    {PartClassId, partItems, {}},
    {RelationshipClassId, relationshipItems, {}},
};
BDDStructure *structures[] = {&structureList[0], &structureList[1], &structureList[2], &structureList[3], nullptr};

// Class descriptions double as node names in serialised trees, so they are
// fixed per class and plain identifiers.
const char *const kDescriptions[] = {"", "OoxmlPackage", "OoxmlDefault", "OoxmlPart", "OoxmlRelationship"};

void freeArray(BDDStructureVector *&vector)
{
    if (vector != nullptr)
        qDeleteAll(*vector);
    delete vector;
    vector = nullptr;
}

template <typename Node>
Node *append(OoxmlPackage &root, BDDStructureVector *&vector)
{
    if (vector == nullptr)
        vector = new BDDStructureVector;
    Node *node = new Node;
    node->setRoot(&root);
    node->setParent(&root);
    vector->push_back(node);
    root.AddChild(node);
    return node;
}

} // namespace

template <typename Base, OoxmlClassId Class>
OoxmlNode<Base, Class>::OoxmlNode()
{
    this->m_classId = static_cast<int32_t>(Class);
    this->m_description = kDescriptions[Class];
}

template <typename Base, OoxmlClassId Class>
BDDStructure *OoxmlNode<Base, Class>::getBDDStructureDefinition() const
{
    return &structureList[Class - 1];
}

template <typename Base, OoxmlClassId Class>
const char *OoxmlNode<Base, Class>::get_desc_string() const
{
    return kDescriptions[Class];
}

template class OoxmlNode<BDDLStructBase_Root, PackageClassId>;
template class OoxmlNode<BDDLStructBase, DefaultClassId>;
template class OoxmlNode<BDDLStructBase, PartClassId>;
template class OoxmlNode<BDDLStructBase, RelationshipClassId>;

OoxmlPart::~OoxmlPart()
{
    delete m_data;
}

OoxmlPackage::~OoxmlPackage()
{
    clear();
}

void OoxmlPackage::clear()
{
    // The children list only points at the nodes the arrays own.
    while (RemoveLastChild() != nullptr) {
    }
    freeArray(m_defaults);
    freeArray(m_parts);
    freeArray(m_relationships);
}

OoxmlDefault *OoxmlPackage::addDefault()
{
    return append<OoxmlDefault>(*this, m_defaults);
}

OoxmlPart *OoxmlPackage::addPart()
{
    return append<OoxmlPart>(*this, m_parts);
}

OoxmlRelationship *OoxmlPackage::addRelationship()
{
    return append<OoxmlRelationship>(*this, m_relationships);
}

BDDSchema *getOoxmlSchema()
{
    static BDDSchema schema{{{itemDefaults, "defaults"},
                             {itemParts, "parts"},
                             {itemRelationships, "relationships"},
                             {itemExtension, "extension"},
                             {itemContentType, "contentType"},
                             {itemName, "partName"},
                             {itemSize, "partSize"},
                             {itemData, "data"},
                             {itemDisposition, "disposition"},
                             {itemOutputContentType, "outputContentType"},
                             {itemSource, "source"},
                             {itemId, "id"},
                             {itemType, "type"},
                             {itemTarget, "target"},
                             {itemTargetMode, "targetMode"}},
                            structures,
                            {}};
    return &schema;
}

} // namespace Ooxml
