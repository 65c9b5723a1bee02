#pragma once

// Where the reader found each area, profile, application and value of the
// tree, for the diagnostics raised after reading: duplicates, pruning, the
// driver-pair check, the builder's refusals. The records themselves keep the
// layout the display-control library shares, so the places live beside them.

#include "support/source_manager.h"

namespace qk {

void NoteRecordPlace(const void* record, SourceLocation where);
// The place noted for record; no place (file 0) when none was.
SourceLocation RecordPlace(const void* record);
// Forgets every place (between runs in tests).
void ResetRecordPlaces();

}  // namespace qk
