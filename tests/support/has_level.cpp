// Exits with success if this machine runs the level given by its number.
#include <stdlib.h>

#include "frame/cpu.h"

int main(int argc, char** argv) { return argc == 2 && cpuLevel() >= atoi(argv[1]) ? 0 : 1; }
