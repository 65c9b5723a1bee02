#include "app/run.h"

int main(int argc, char** argv) {
    return qk::RunQuillard(argc, argv);
}
