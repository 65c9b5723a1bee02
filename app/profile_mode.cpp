#include "app/profile_mode.h"

namespace qk {

int g_appProfileMode = kSystemFile;

}  // namespace qk
