#pragma once

// The whole-blob check that every reader of a blob file (--from, --against,
// --diff) passes before it uses any of it: a blob is taken only when each
// table, size, chain and text it holds is exactly as the builder lays it out,
// so a damaged blob is refused instead of answering with part of its content
// or with empty names.

#include <string>

#include "blob/blob_reader.h"

namespace qk {

// Null when the image is a whole, well-formed blob; otherwise the first thing
// found wrong, as a phrase that follows "the blob file" (e.g. "has a table that
// reaches past its end (is it cut short?)").
const char* BlobImageProblem(const BlobReader& reader);

// A property name as a value record holds it: the 7-bit characters of the
// name, the others left out, as the builder narrows it.
std::string NarrowPropertyName(const std::wstring& name);

}  // namespace qk
