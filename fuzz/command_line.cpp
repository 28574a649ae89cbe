// Any command line, its words apart by line ends: it is understood, or refused with a reason; nothing is run.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "ixocut/Commands.h"

using namespace ixocut;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words;
  std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string word; words.size() < 64 && std::getline(text, word);) words.push_back(word);
  TProgram program({.Name = kProgramName});
  AddCommands(program.Top());
  try {
    (void)program.Parse(std::move(words));
  } catch (const std::exception& e) {  // a wrong command line; the program says it in one line
    if (*e.what() == '\0') std::abort();
  }
  return 0;
}
