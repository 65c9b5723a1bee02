// Placeholder until the reverse conversion lands.
#include "inspect/reverse_xml.h"

namespace qk {

int ReverseToXml(int, int, const char*) { return -1; }

}  // namespace qk
