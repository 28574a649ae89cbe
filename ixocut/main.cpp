#include "ixocut/Main.h"

int main(int argc, char** argv) { return ixocut::IxocutMain(argc, argv, {.Commit = IXO_COMMIT}); }
