#pragma once

namespace qk {

// Dumps every table of the current image to the progress log.
void PrintCompact();

}  // namespace qk
