#include "app/allocator_tuning.h"

#include <malloc.h>

namespace qk {

void TuneAllocator() {
#ifdef __GLIBC__
    mallopt(M_MXFAST, 0);
#endif
}

}  // namespace qk
