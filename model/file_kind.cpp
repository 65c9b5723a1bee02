#include "model/file_kind.h"

namespace qk {

int g_appProfileMode = kSystemFile;

}  // namespace qk
