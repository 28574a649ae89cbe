// What a command is written with: its options, its texts, its document.
#pragma once

#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "commandline/CommandLine.h"
#include "commandline/Document.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Commands.h"
#include "ixocut/Console.h"
#include "ixocut/ControllerSettings.h"

namespace ixocut {
using namespace ixocontroller;

// Adds a command that runs `run(options, console)`.
template <class TOptions, class TRun>
[[nodiscard]] TCommand AddWith(TCommand above, const std::string& name, const std::string& about,
                               const std::shared_ptr<TOptions>& options, TRun run) {
  const std::string words = above.Name() == kProgramName ? name : above.Name() + " " + name;
  return above.Add(name, about, [words, options, run] {
    TConsole console(std::cout, words, *options);
    return run(*options, console);
  });
}

// The same with options of its own, which live as long as the program.
template <class TOptions, class TRun>
[[nodiscard]] std::pair<TCommand, TOptions&> AddOwn(TCommand above, const std::string& name, const std::string& about,
                                                    TRun run) {
  const auto options = std::make_shared<TOptions>();
  return {AddWith(above, name, about, options, run), *options};
}

}  // namespace ixocut
