// What a command is written with: its options, its texts, its document; and how it is added with options of its own.
#pragma once

#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Document.h"

namespace ixocut {
using namespace ixocontroller;

// Adds a command that runs `run(options, std::cout)`; its options live as long as the program.
template <class TOptions, class TRun>
[[nodiscard]] std::pair<TCommand, TOptions&> AddOwn(TCommand above, const std::string& name, const std::string& about,
                                                    TRun run) {
  const auto options = std::make_shared<TOptions>();
  return {above.Add(name, about, [options, run] { return run(*options, std::cout); }), *options};
}

}  // namespace ixocut
