#pragma once

namespace qk {

// Thrown by the fatal exits (the error exit, the out-of-memory exit, the unknown
// driver/property exit) once their logging and log copy are done. It unwinds to
// main(), which returns the status; tests and fuzzers catch it instead of dying.
struct FatalExit {
    int status;
};

}  // namespace qk
