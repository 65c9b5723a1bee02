#pragma once

// Shared by the fuzz targets: every run starts from the state of a fresh
// process, and inputs that the tool reads by name are written to a file first.

#include <cstddef>
#include <cstdint>

namespace qk::fuzz {

// Puts every module back to a fresh run, with logging on (into a sink that
// drops the lines, so the formatting of every message is exercised) and a new
// root record. The first call moves the process into a private work directory.
void ResetRun();

// Writes the bytes to name in the work directory; returns name.
const char* WriteInput(const std::uint8_t* data, std::size_t size, const char* name);

// A fatal exit ends a run of the tool with status 0 or 255; any other status is
// a finding.
void CheckFatalExit(int status);

// The compile path of the tool over bytes taken as one XML file of the given
// kind: read, check, build and dump the result. Fatal exits end the run as
// they end the tool; they are not findings.
void CompileXml(const std::uint8_t* data, std::size_t size, int fileKind);

}  // namespace qk::fuzz
