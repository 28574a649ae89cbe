// The whole program with a driver for a laser source of one's own.
#include <ixocut/Main.h>

#include "LaserSource.h"

int main(int argc, char** argv) { return ixocut::IxocutMain(argc, argv, {.Drivers = {example::SourceDriver()}}); }
