#include "host/CommandLine.h"

int main(int argc, char** argv) { return ixocamglue::RunCommandLine(argc, argv); }
