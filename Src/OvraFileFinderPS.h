// OvraFileFinderPS.h - private platform layer of TFileFinder: the expansion
// of a pattern into one directory level and the examination of its entries.
// TFileFinder's FileFinderFind, FileFinderFindNext and FileFinderClose frame
// these calls alike on every platform.
#ifndef OVRA_SRC_OVRAFILEFINDERPS_H
#define OVRA_SRC_OVRAFILEFINDERPS_H

#include "OvraBstr.h"
#include "OvraFile.h"

// Expands pattern with the system's pathname rules into a new level, or
// kInvalidHandleValue when the level's own record cannot be allocated. A
// pattern the system cannot be given unchanged, and an expansion that fails
// or runs out of memory, give a level without entries.
void* InternalFinderExpand(const TBstr& pattern);
// Loads the level's next entry into info, skipping entries that vanished or
// cannot be examined and those whose name cannot be copied; false when the
// level is used up (info is then unchanged).
bool InternalFinderNextEntry(void* level, TFileInfo& info);
// Releases a level from InternalFinderExpand.
void InternalFinderFree(void* level);

#endif
