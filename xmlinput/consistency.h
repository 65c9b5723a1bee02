#pragma once

namespace qk {

// Checks the dynamic-switching driver pair: 0 passes, 1 mismatch.
int checkXML();

}  // namespace qk
