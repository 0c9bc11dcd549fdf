#pragma once

#include "cameras/filetype.h"
#include "policy/ContentManagement.h"
#include "ucp_engine/analysis.ids.h"

#include <cstdint>

class BDDLStructBase;

// The identifiers carried by the issues, remedies and sanitisations a camera
// reports. None is stored in the tree: each is derived from the file type in
// the structure root, the camera the camera pool finds for a type, and the
// camera identifier.
//
// Every derivation takes a structure root. Any other node is answered for the
// root of its tree; a null node, or a node without a root, raises
// std::bad_alloc. The questions to the cameras go through the root to the
// session's camera pool, whose std::runtime_error (no plug-in for the type)
// and "Camera Pool broken" (no pool) pass through.

// The statistics-group id of the root's file type; 0 for types without one.
eAnalysisStatsID_t getAnalysisStatsID(BDDLStructBase *node);
// The validation group of an item: the camera's answer, else the family's
// default; Word and Open XML documents ask the enclosing documents instead.
uint32_t getValidationGroupID(BDDLStructBase *node, unsigned int item);
// The camera's message id for `key`; 0 for cameras without messages.
uint32_t getErrorMsgID(BDDLStructBase *node, eCameraId_t camera, char *key);
// camera << 24 | (group - the camera's group base) << 16 | message, OR-ed in
// 32 bits; 0 for cameras without issue groups or without a message.
uint32_t getIssueID(BDDLStructBase *node, unsigned int item, eCameraId_t camera, char *key);
// camera byte << 24 | (sanitisation - 71) << 16 | message; 0, with a debug
// line, for document families without sanitisation ids or without a message.
uint32_t getSanitisationId(BDDLStructBase *node, char *key, eAnalysisStatsID_t sanitisation);
// The policy profile of the root's file type; cfgUnknown for the rest.
eVxConfigType getConfigApp(BDDLStructBase *node);
// The camera of the root's file type in the file-type registry; 0 without one.
eCameraId_t getCameraID(BDDLStructBase *node);
