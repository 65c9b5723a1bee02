#pragma once

namespace qk {

// Fetches database (0 system, 1 user, 2 OEM) from the display-control library and
// writes it as customisation XML to path. 0 on success.
int ReverseToXml(int database, int placeholders, const char* path);

}  // namespace qk
