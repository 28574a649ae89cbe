// A program outside this project, built against the installed package.
#include <ixocamglue/support/Format.h>

#include <cstdio>

int main() {
  std::puts(ixocamglue::Format("ready after %d ms", 300).c_str());
  return 0;
}
