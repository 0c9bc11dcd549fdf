#pragma once

#include <QMap>
#include <QString>

// Statistics-group ids: the number that names a content group in the
// analysis repository and in the report. They are derived from file types
// and camera identifiers and written into reports, so they never change.
// Inside the repository they travel as signed 16-bit group ids.
//
// Format families are used by number. Only the format-independent content
// categories, which policy code names directly, have enumerators.
enum eAnalysisStatsID_t : int {
    eAnalysisStats_None = 0,
    eAnalysisStats_Remediation = 272,
    eAnalysisStats_Sanitisation = 273,
    eAnalysisStats_StructuralError = 274,
    eAnalysisStats_Macro = 275,
    eAnalysisStats_EmbeddedObject = 276,
    eAnalysisStats_Hyperlink = 277,
    eAnalysisStats_Metadata = 278,
    eAnalysisStats_Javascript = 279,
    eAnalysisStats_Acroform = 280,
    eAnalysisStats_ExternalHyperlink = 281,
    eAnalysisStats_Action = 282,
    eAnalysisStats_NonConformingImage = 283,
    eAnalysisStats_PdfSanitisation = 284,
    eAnalysisStats_ReviewComment = 285,
    eAnalysisStats_InternalHyperlink = 286,
    eAnalysisStats_DynamicDataExchange = 287,
    eAnalysisStats_EmbeddedImage = 288,
};

// The description of every id that has one (0 has the empty text). Filled
// once while the library loads and never changed afterwards, so readers need
// no lock.
const QMap<eAnalysisStatsID_t, QString> &analysisSchemaStrings();

// The description written as "vx:BriefDescription" for a group id; for an id
// without one, "missing description for eAnalysisStatsID_t <id>".
QString analysisSchema_GetString(eAnalysisStatsID_t id);
