#pragma once

#include "analysis/RepositoryComponents.h"

#include <cstdint>
#include <memory>
#include <string>

class MemoryBuffer;

// The XML analysis report: one analysed document written as a "vx:CorvidInfo"
// document. The writer builds it with an XML library that stays inside this
// unit: nothing of it shows here.
namespace XML_Reporting {

// The report vocabulary's namespace. The project publishes no schema yet, so
// the name lives under the reserved ".example" domain: it identifies the
// vocabulary without pointing at anybody's server.
inline constexpr char reportNamespaceURI[] = "http://vxcore.example/namespace";
inline constexpr char schemaLocation[] = "http://vxcore.example/namespace/corvidInfo.xsd";
inline constexpr char xmlSchemaInstanceURI[] = "http://www.w3.org/2001/XMLSchema-instance";

// The plain-text document written when no report can be built: the prolog,
// the repository's internal errors one per line, then the closing text. It
// looks like XML but is not meant to be parsed as such (its encoding label
// reads "utf - 8").
const std::string &failureDocumentProlog();
inline constexpr char failureDocumentClosing[] = "\n</vx:CorvidInfo>\n";

// An element of a report being built, as the writer hands it to code that
// adds elements of its own (the policy's export hook). Opaque outside the
// writer.
struct ReportElement;

// Builds and saves one report; made for a single WriteReport and not reused.
class XmlWriter
{
public:
    XmlWriter();
    XmlWriter(const XmlWriter &) = delete;
    XmlWriter &operator=(const XmlWriter &) = delete;
    ~XmlWriter();

    // Writes the report of document into outBuf, which must be empty. Answers
    // the number of bytes written, or 0 with an internal error recorded in
    // analysis.
    uint32_t writeXML_Analysis(RepositoryComponents::DocumentAnalysis &analysis,
                               RepositoryComponents::DocumentStatistics &document,
                               MemoryBuffer *outBuf, bool detailed);

    // Reserved for a per-group description source; the report takes the
    // statistics descriptions instead, so this answers "".
    std::string getBriefDescription(int id) const;
    // The report carries no content-management settings.
    void AddContentManagmentSettings() {}

    // True for the container elements, whose open and close tags stand on
    // lines of their own.
    static bool findElement(const char *name);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace XML_Reporting
