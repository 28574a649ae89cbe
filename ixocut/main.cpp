#include "ixocut/CommandLine.h"

int main(int argc, char** argv) { return ixocut::RunCommandLine(argc, argv); }
