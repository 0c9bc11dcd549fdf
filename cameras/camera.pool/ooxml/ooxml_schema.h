#pragma once

#include "ucp_engine/BDDLStructBase.h"

#include <QString>

#include <cstdint>

// The structure tree of an Office Open XML package. The root stands for the
// package; its three arrays hold the extension defaults of the content-type
// list, the parts (with their resolved content types and bytes) and every
// relationship of the package, each naming its source part. Relationship
// parts and the content-type list are not parts of the tree: the writer
// makes them anew from the tree.
//
// The tree carries everything a run needs: a tree rebuilt from its
// serialised form validates and writes exactly as the one read from a file.
namespace Ooxml {

enum OoxmlClassId : unsigned int {
    PackageClassId = 1,
    DefaultClassId = 2,
    PartClassId = 3,
    RelationshipClassId = 4,
};

// Item ids of the schema's item-name lookup. Ids are shared between classes
// where the item means the same thing.
enum OoxmlItemId : int32_t {
    itemDefaults = 1,
    itemParts = 2,
    itemRelationships = 3,
    itemExtension = 10,
    itemContentType = 11,
    itemName = 20,
    itemSize = 21,
    itemData = 22,
    itemDisposition = 23,
    itemOutputContentType = 24,
    itemSource = 30,
    itemId = 31,
    itemType = 32,
    itemTarget = 33,
    itemTargetMode = 34,
};

// What the writer does with a part or relationship; set by validation,
// which starts every run from dispKeep.
enum Disposition : uint8_t {
    dispKeep = 0,
    dispRemoved = 1, // removed by the policy, or with content it removed
    dispDropped = 2, // dropped as broken: a relationship without target, a part nothing refers to
    dispEmptied = 3, // removed by the policy, but written as an empty part of its kind (emptyContentOf)
};

// A node class of this camera: its class id, description and structure.
template <typename Base, OoxmlClassId Class>
class OoxmlNode : public Base
{
public:
    OoxmlNode();
    BDDStructure *getBDDStructureDefinition() const override;
    const char *get_desc_string() const override;
};

// One Default element of the content-type list.
class OoxmlDefault final : public OoxmlNode<BDDLStructBase, DefaultClassId>
{
public:
    QString m_extension;
    QString m_contentType;
};

class OoxmlPart final : public OoxmlNode<BDDLStructBase, PartClassId>
{
public:
    ~OoxmlPart() override;

    QString m_name;        // the member name, as stored ("word/document.xml")
    QString m_contentType; // from the content-type list; empty when it names none
    uint32_t m_partSize = 0;
    // The part's bytes; null for an empty part. A raw pointer because the
    // schema's accessor hands out its address; the node owns what it points at.
    BDDScalarArray<vtUCharArray> *m_data = nullptr;
    uint8_t m_disposition = dispKeep;
    QString m_outputContentType; // the content type to write, when it changes

    // The data's size (0 without data).
    size_t dataSize() const { return m_data != nullptr ? m_data->size() : 0; }
};

class OoxmlRelationship final : public OoxmlNode<BDDLStructBase, RelationshipClassId>
{
public:
    QString m_source; // the source part's name; empty for the package
    QString m_id;
    QString m_type;
    QString m_target;     // as written in the relationship part
    QString m_targetMode; // "Internal", "External", or empty (internal)
    uint8_t m_disposition = dispKeep;
};

class OoxmlPackage final : public OoxmlNode<BDDLStructBase_Root, PackageClassId>
{
public:
    ~OoxmlPackage() override;

    // Reading (ooxml_reader), validation (ooxml_validation), writing (ooxml_writer).
    cameraStatus_t vir_readFromBuffer(context *ctx, BDDLStructBase *root, BDDLStructBase *parent) override;
    cameraStatus_t validate() override;
    cameraStatus_t vir_writeToBuffer(context *ctx) override;

    // Empties the three arrays, freeing their nodes.
    void clear();
    // A new node of the class, bound to this root, appended to its array and
    // to the children list (as a tree rebuilt through UCP has them).
    OoxmlDefault *addDefault();
    OoxmlPart *addPart();
    OoxmlRelationship *addRelationship();

    // The arrays, null until the first node; elements may be null in a
    // rebuilt tree whose size attribute promised more than it delivered.
    BDDStructureVector *m_defaults = nullptr;
    BDDStructureVector *m_parts = nullptr;
    BDDStructureVector *m_relationships = nullptr;
};

// The elements of an array as their class, skipping null slots.
template <typename Node>
class NodesOf
{
public:
    explicit NodesOf(const BDDStructureVector *vector) : m_vector(vector) {}
    template <typename F>
    void forEach(F &&f) const
    {
        if (m_vector == nullptr)
            return;
        for (BDDLStructBase *node : *m_vector)
            if (Node *typed = dynamic_cast<Node *>(node))
                f(*typed);
    }

private:
    const BDDStructureVector *m_vector;
};
inline NodesOf<OoxmlDefault> defaultsOf(const OoxmlPackage &root) { return NodesOf<OoxmlDefault>(root.m_defaults); }
inline NodesOf<OoxmlPart> partsOf(const OoxmlPackage &root) { return NodesOf<OoxmlPart>(root.m_parts); }
inline NodesOf<OoxmlRelationship> relationshipsOf(const OoxmlPackage &root)
{
    return NodesOf<OoxmlRelationship>(root.m_relationships);
}

// The schema of the tree, built when the module is loaded.
BDDSchema *getOoxmlSchema();

} // namespace Ooxml
