#include "bench/support/Machine.h"

int main() {
    kpl::bench::PrintMachine();
    return 0;
}
