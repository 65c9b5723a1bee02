#pragma once

namespace qk {

// -hiddenhelp: the original short help text.
void OutputHelp();
// --help: the usage of every option, the exit statuses and where the log goes.
void OutputUsage();
// --version: "quillard VERSION".
void OutputVersion();

}  // namespace qk
