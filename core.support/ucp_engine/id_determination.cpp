#include "ucp_engine/id_determination.h"

#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/ucpLogging.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <vector>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

// --- tables ---------------------------------------------------------------------

struct StatsRow
{
    ft_t type;
    int stats;
};
const StatsRow kStatsByType[] = {
    {ft_pdf, 16},          {ft_pdf_structure, 16},   {ft_doc, 152},  {ft_docx, 64},  {ft_pptx, 65},
    {ft_xlsx, 66},         {ft_ppt, 235},            {ft_ppt_pictures, 234}, {ft_xls, 241}, {ft_png, 329},
    {ft_jpeg, 297},        {ft_gif, 345},            {ft_emf, 364},  {ft_wmf, 348},  {ft_bmp, 395},
    {ft_tiff, 462},        {ft_pe, 410},             {ft_macho, 403}, {ft_elf, 421}, {ft_mp4, 430},
    {ft_mp3, 442},         {ft_mpeg_other, 449},     {ft_mpeg, 449}, {ft_wav, 445},  {ft_equation_native, 459},
    {ft_compobj, 143},     {ft_doc_summary_info, 145}, {ft_opc, 148}, {ft_cfb, 141},
};

// Per camera id: the type asked for its messages and the base of its issue
// groups (0: none). Camera 20 stands for the compound-file container, 21 for
// the Open Packaging container.
struct CameraRow
{
    ft_t messageType;
    uint32_t groupBase;
};
const CameraRow kCameras[] = {
    /* 0  Default    */ {ft_unknown, 0},
    /* 1  Word       */ {ft_doc, 151},
    /* 2  Excel      */ {ft_xls, 239},
    /* 3  PowerPoint */ {ft_ppt, 205},
    /* 4  Rtf        */ {ft_unknown, 0},
    /* 5  OpenXml    */ {ft_xml, 63},
    /* 6  Emf        */ {ft_emf, 363},
    /* 7  Wmf        */ {ft_wmf, 347},
    /* 8  Png        */ {ft_png, 0},
    /* 9  Jpeg       */ {ft_unknown, 0},
    /* 10 Gif        */ {ft_gif, 331},
    /* 11 Pdf        */ {ft_unknown, 0},
    /* 12 Bmp        */ {ft_bmp, 394},
    /* 13 Tiff       */ {ft_tiff, 461},
    /* 14 WinExe     */ {ft_pe, 409},
    /* 15 MachO      */ {ft_macho, 402},
    /* 16 Elf        */ {ft_elf, 420},
    /* 17 Mp4        */ {ft_mp4, 429},
    /* 18 Mp3        */ {ft_mp3, 441},
    /* 19 Wav        */ {ft_wav, 444},
    /* 20 Mpeg2      */ {ft_cfb, 138},
    /* 21 OpcPackage */ {ft_opc, 147},
};

// Statistics ids whose validation group the camera answers. A family that
// walks outward has no default: a zero answer asks the enclosing document.
constexpr uint32_t kWalkOutward = UINT32_MAX;
struct GroupRow
{
    int stats;
    ft_t type;
    uint32_t fallback;
};
const GroupRow kGroups[] = {
    {152, ft_doc, kWalkOutward}, {64, ft_xml, kWalkOutward}, {65, ft_xml, kWalkOutward},
    {66, ft_xml, kWalkOutward},  {241, ft_xls, 268},         {235, ft_ppt, 233},
    {297, ft_jpeg, 297},         {329, ft_png, 329},         {345, ft_gif, 345},
    {364, ft_emf, 380},          {348, ft_wmf, 360},         {395, ft_bmp, 400},
    {403, ft_macho, 403},        {410, ft_pe, 418},          {421, ft_elf, 421},
    {430, ft_mp4, 430},          {442, ft_mp3, 442},         {445, ft_wav, 445},
    {462, ft_tiff, 462},         {141, ft_cfb, 141},         {148, ft_opc, 148},
};

// Document families with sanitisation ids: the type asked and the camera byte.
struct SanitisationRow
{
    int stats;
    ft_t type;
    uint32_t cameraByte;
};
const SanitisationRow kSanitisations[] = {
    {152, ft_doc, eCameraId_Word},       {234, ft_ppt, eCameraId_PowerPoint}, {235, ft_ppt, eCameraId_PowerPoint},
    {241, ft_xls, eCameraId_Excel},      {64, ft_xml, eCameraId_OpenXml},     {65, ft_xml, eCameraId_OpenXml},
    {66, ft_xml, eCameraId_OpenXml},     {141, ft_cfb, eCameraId_Mpeg2},      {148, ft_opc, eCameraId_OpcPackage},
};
constexpr uint32_t kSanitisationBase = 71;

struct ConfigRow
{
    ft_t type;
    eVxConfigType config;
};
const ConfigRow kConfigs[] = {
    {ft_pdf, cfgPdfConfig},          {ft_doc, cfgWordConfig}, {ft_docx, cfgWordConfig}, {ft_ppt, cfgPptConfig},
    {ft_pptx, cfgPptConfig},         {ft_ppt_pictures, cfgPptConfig}, {ft_xls, cfgXlsConfig},
    {ft_xlsx, cfgXlsConfig},         {ft_rtf, cfgRtfConfig},  {ft_tiff, cfgTiffConfig},
};

// The first row whose `key` member equals `value`, or null.
template <typename Row, std::size_t N, typename Member, typename Value>
const Row *findRow(const Row (&table)[N], Member Row::*key, Value value)
{
    const auto found = std::find_if(std::begin(table), std::end(table),
                                    [&](const Row &row) { return row.*key == value; });
    return found == std::end(table) ? nullptr : found;
}

const CameraRow *cameraRow(eCameraId_t camera)
{
    if (camera < 0 || static_cast<std::size_t>(camera) >= std::size(kCameras))
        return nullptr;
    return &kCameras[camera];
}

// The root the derivations work on.
BDDLStructBase_Root *rootOf(BDDLStructBase *node)
{
    if (node == nullptr)
        throw std::bad_alloc();
    if (BDDLStructBase_Root *const root = dynamic_cast<BDDLStructBase_Root *>(node))
        return root;
    if (node->root() == nullptr)
        throw std::bad_alloc();
    return node->root();
}

int statsOf(const BDDLStructBase_Root *root)
{
    const StatsRow *const row = findRow(kStatsByType, &StatsRow::type, root->getFiletype());
    return row ? row->stats : 0;
}

} // namespace

eAnalysisStatsID_t getAnalysisStatsID(BDDLStructBase *node)
{
    return static_cast<eAnalysisStatsID_t>(statsOf(rootOf(node)));
}

uint32_t getValidationGroupID(BDDLStructBase *node, unsigned int item)
{
    // Enclosing roots are set by cameras; a chain that comes back on itself
    // ends the walk as a chain without an answer would.
    std::vector<const BDDLStructBase_Root *> visited;
    for (BDDLStructBase_Root *root = rootOf(node); root != nullptr; root = root->enclosingRoot()) {
        if (std::find(visited.begin(), visited.end(), root) != visited.end())
            break;
        visited.push_back(root);
        const int stats = statsOf(root);
        const GroupRow *const row = findRow(kGroups, &GroupRow::stats, stats);
        if (row == nullptr)
            return static_cast<uint32_t>(stats);
        if (const uint32_t answer = root->getAnalysisGroupID(row->type, item))
            return answer;
        if (row->fallback != kWalkOutward)
            return row->fallback;
    }
    return 0;
}

uint32_t getErrorMsgID(BDDLStructBase *node, eCameraId_t camera, char *key)
{
    BDDLStructBase_Root *const root = rootOf(node);
    const CameraRow *const row = cameraRow(camera);
    if (row == nullptr || row->messageType == ft_unknown)
        return 0;
    return root->getErrMsgID(row->messageType, key);
}

uint32_t getIssueID(BDDLStructBase *node, unsigned int item, eCameraId_t camera, char *key)
{
    const uint32_t group = getValidationGroupID(node, item);
    const CameraRow *const row = cameraRow(camera);
    if (row == nullptr || row->groupBase == 0)
        return 0;
    const uint32_t message = getErrorMsgID(node, camera, key);
    if (message == 0)
        return 0;
    return (static_cast<uint32_t>(camera) << 24) | ((group - row->groupBase) << 16) | message;
}

uint32_t getSanitisationId(BDDLStructBase *node, char *key, eAnalysisStatsID_t sanitisation)
{
    BDDLStructBase_Root *const root = rootOf(node);
    if (const SanitisationRow *const row = findRow(kSanitisations, &SanitisationRow::stats, statsOf(root))) {
        if (const uint32_t message = root->getSanitisationMsgID(row->type, key))
            return (row->cameraByte << 24) | ((static_cast<uint32_t>(sanitisation) - kSanitisationBase) << 16)
                   | message;
    }
    tbLog("core.support/ucp_engine/id_determination 642 Unspecified Sanitisation ID");
    return 0;
}

eVxConfigType getConfigApp(BDDLStructBase *node)
{
    const ConfigRow *const row = findRow(kConfigs, &ConfigRow::type, rootOf(node)->getFiletype());
    return row ? row->config : cfgUnknown;
}

eCameraId_t getCameraID(BDDLStructBase *node)
{
    return FileType().getCameraIdFromFileTypeEnum(rootOf(node)->getFiletype());
}
