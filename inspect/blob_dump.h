#pragma once

// Dump of the current blob image (-o) to the progress log, table by table.
// The image may come from a file, so every table, record, chain and text is
// checked before it is read; whatever does not check out is reported with an
// ERROR line and the rest of the dump goes on.

#include <cstdint>

#include "blob/blob_reader.h"

namespace qk {

// Dumps every table of the current image to the progress log.
void PrintCompact();

void PrintWordsTable();
void PrintDriverTable();
void PrintPropertyTable();
void PrintAreaTable();
void PrintProfileTable();
void PrintUseTable();
void PrintApplicationTable();

// Dumps the value records of a profile, and an ERROR line where one leaves the
// Profile table. Returns the bytes they take.
std::uint64_t PrintValues(const ProfileEntry& profile);

// Dumps one value record whose head starts at the byte offset recordByte; the
// caller has checked that the head and datum lie inside the image.
void PrintValueDatum(std::uint64_t recordByte, std::uint32_t datumSize);

}  // namespace qk
