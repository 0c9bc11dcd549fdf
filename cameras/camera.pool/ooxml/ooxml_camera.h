#pragma once

#include "cameras/camera_interfaces.h"

#include <memory>

struct context;

namespace Ooxml {

class OoxmlPackage;

// The disarm camera for Office Open XML packages (Word, Excel and
// PowerPoint documents, templates and their macro-enabled kinds).
//
// readInputBuffer() reads the package into a tree (ooxml_schema.h) and sets
// the document family's type (docx, xlsx or pptx) on the root, so that the
// policy profile of the family applies; runValidation() applies the policy
// (ooxml_validation.h); writeOutputBuffer() writes the package anew
// (ooxml_writer.h). runCamera() does all three. A refused document (a
// disallowed switch, a broken package) writes nothing.
//
// The root's doctype names the kind of the document as it will be written:
// the input's kind ("docm") once read, its macro-free kind ("docx") once
// validation has sanitised its macros.
//
// Stages called before initialiseCamera() answer -1 and touch nothing.
class Ooxml_camera final : public VXCameraIF
{
public:
    Ooxml_camera();
    ~Ooxml_camera() override;

    Ooxml_camera(const Ooxml_camera &) = delete;
    Ooxml_camera &operator=(const Ooxml_camera &) = delete;

    // -1 when there is no input. A second call starts a new run.
    VX2_RetStatus initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                   RepositoryComponents::DocumentAnalysis *analysis, MemoryBufferPool *pool,
                                   BDDLStructBase_Root **root) override;
    // 0, or -2 when the package cannot be read (the fault is in the analysis).
    VX2_RetStatus readInputBuffer() override;
    // 0 for a clean package, 1 when the policy removed or changed something;
    // -1 when the policy refuses the document or validation failed, -2 for a
    // package too broken to be written.
    VX2_RetStatus runValidation() override;
    // 0 (nothing is written for a package that did not pass validation); -1
    // when the archive cannot be written.
    VX2_RetStatus writeOutputBuffer() override;
    // The three stages; the first failure ends the run.
    VX2_RetStatus runCamera() override;
    VX2_RetStatus deinitialiseCamera() override;

    ft_t getFileTypeFromProgID(const char *progId) override;
    ft_t getFileTypeFromClassID(const char *classId) override;
    ft_t getFileTypeFromFileExtension(const char *extension) override;
    // The package's kind (docx, xlsx, pptx) by its top-level folders.
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override;
    // Throws the C string "getUCPDocumentInterface called before Ooxml
    // initialised" before initialiseCamera().
    UCPDocument *getUCPDocumentInterface() override;

private:
    bool initialised() const { return m_root != nullptr && m_context != nullptr; }

    std::unique_ptr<OoxmlPackage> m_root;
    std::unique_ptr<context> m_context;
};

} // namespace Ooxml
