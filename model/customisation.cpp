#include "model/customisation.h"

#include "support/tracked_memory.h"

namespace qk {

Customisations* g_lpCustomisations = nullptr;

Customisations* CreateCustomisations() {
    g_lpCustomisations = AllocateRecord<Customisations>();
    return g_lpCustomisations;
}

}  // namespace qk
