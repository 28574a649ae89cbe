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
#include "ixocut/ControllerSettings.h"

namespace ixocut {
using namespace ixocontroller;
}  // namespace ixocut
