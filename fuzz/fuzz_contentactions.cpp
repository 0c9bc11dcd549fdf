// The content-management actions meet document bytes and names taken from
// documents. Runs one action chosen by the input over the rest of it, under
// a policy setting the input chooses, on a PDF root (whose ids need no
// camera plug-ins) bound to a session without a camera pool.
//
// Input: setting, action, item, replacement, then the name up to the first
// zero byte and the content after it.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"
#include "cameras/camerabase.h"
#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/BDDValidationFuncs.h"

#include <QtGlobal>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace {

class FuzzRoot final : public BDDLStructBase_Root
{
public:
    const char *get_desc_string() const override { return "FuzzRoot"; }
};

class FuzzLeaf final : public BDDLStructBase
{
public:
    const char *get_desc_string() const override { return "FuzzLeaf"; }
};

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

// One session per setting, each with its policy loaded once; the last one's
// text is no setting at all.
CameraBase &sessionFor(uint8_t selector)
{
    static const std::array<CameraBase *, 4> sessions = [] {
        std::array<CameraBase *, 4> made{};
        const char *settings[] = {"disallow", "sanitise", "allow", "bogus"};
        size_t count = 0;
        const ContentSwitch *switches = contentSwitches(&count);
        for (size_t s = 0; s < made.size(); ++s) {
            std::string xml = "<config><pdfConfig>";
            for (size_t i = 0; i < count; ++i)
                xml += std::string("<") + switches[i].name + ">" + settings[s] + "</" + switches[i].name + ">";
            xml += "</pdfConfig></config>";
            MemoryBuffer buffer;
            buffer.putRawBytes(xml.data(), xml.size());
            buffer.seek(0);
            made[s] = new CameraBase(nullptr); // kept for the process
            made[s]->contentManagement().loadRepositoryFromXML(&buffer);
        }
        return made;
    }();
    return *sessions[selector % sessions.size()];
}

int keepOdd(int c)
{
    return c & 1;
}

void act(uint8_t action, BDDLStructBase *root, unsigned item, unsigned char replacement, const char *name,
         std::vector<unsigned char> &content)
{
    unsigned char *const data = content.data();
    const unsigned long count = content.size();
    std::vector<unsigned short> words(content.begin(), content.end());
    FuzzLeaf target;
    switch (action % 12) {
    case 0:
        META(root, item, data, count, replacement, name);
        break;
    case 1:
        META(root, item, words.data(), words.size(), replacement, name);
        break;
    case 2:
        EMBEDDED(root, item, data, count, replacement, name, keepOdd);
        break;
    case 3:
        EXTERNAL_HYPERLINK_REPORT_ONLY(root, item, name);
        break;
    case 4:
        REJECTED(root, item, data, &target, static_cast<char>(replacement), name);
        break;
    case 5:
        REMEDY(root, item, data, count, replacement, name);
        break;
    case 6:
        REMEDY_COPY(root, item, data, data + count / 2, count / 2, name);
        break;
    case 7:
        imageCameraGateway(&content, static_cast<ft_t>(replacement), &target, 0, root, item);
        break;
    case 8: {
        std::vector<char> bytes(content.begin(), content.end());
        stringSearcher(&bytes, const_cast<char *>(name));
        break;
    }
    case 9:
        CLEARANCE<unsigned short>(words.data(), words.size(), replacement, keepOdd);
        break;
    case 10:
        ReportContentItem(root, count, name, name);
        break;
    default:
        returnSanitisationID(root, "%s", name, eAnalysisStats_Macro);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
    static const bool installed = (qInstallMessageHandler(quiet), true);
    (void)installed;
    if (size < 4)
        return 0;
    const uint8_t *const end = input + size;
    const uint8_t *const nameEnd = std::find(input + 4, end, 0);
    const std::string name(input + 4, nameEnd);
    std::vector<unsigned char> content(nameEnd == end ? end : nameEnd + 1, end);

    RepositoryComponents::DocumentAnalysis analysis;
    analysis.AddFileAnalysis("fuzz", "pdf", "1", 0, nullptr);
    MemoryBufferPool pool;
    context ctx;
    ctx.m_analysis = &analysis;
    ctx.m_bufferPool = &pool;
    FuzzRoot root;
    root.setContext(&ctx);
    root.setFiletype(ft_pdf);
    root.initialBDDLStructBase_Root(&root, &sessionFor(input[0]), nullptr, nullptr, 0);

    try {
        act(input[1], &root, input[2], input[3], name.c_str(), content);
    } catch (const std::exception &) {
        // Unknown settings and types, and overlong messages, are refused by throwing.
    } catch (const char *) {
    }
    return 0;
}
