#include "support/pairs.h"

int main(int argc, char **argv) {
    bench::declare_rows();
    return bench::run(argc, argv);
}
