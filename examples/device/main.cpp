// The whole program with a driver of one's own, which a machine file may name: <Input Driver="chiller"
// Address="ready"/>.
#include <ixocut/Main.h>

#include "Chiller.h"

int main(int argc, char** argv) { return ixocut::IxocutMain(argc, argv, {.Drivers = {example::ChillerDriver()}}); }
