#include "app/Bootstrap.h"

int main(int argc, char **argv) {
    Bootstrap::main(argc, argv);
    return 0;
}
