#pragma once

namespace qk {

// Thrown by the fatal exits (the error exit, the out-of-memory exit, the unknown
// driver/property exit) once their logging is done. It unwinds to the run,
// which copies the log when asked and returns the status; tests and fuzzers
// catch it instead of dying.
struct FatalExit {
    int status;
    bool copyLog = false;  // the error exit's log is copied to the -l file
};

}  // namespace qk
