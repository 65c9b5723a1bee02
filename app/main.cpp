#include "app/allocator_tuning.h"
#include "app/run.h"

int main(int argc, char** argv) {
    qk::TuneAllocator();
    return qk::RunQuillard(argc, argv);
}
