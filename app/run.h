#pragma once

namespace qk {

// The whole run of quillard: examines the options, reads, checks, builds,
// writes, dumps or converts back, and returns the exit status.
int RunQuillard(int argc, char** argv);

}  // namespace qk
