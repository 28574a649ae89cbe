// A procedure of the table with the parameters that somebody gave: the command line's words, or a request's JSON. Any
// thread.
#pragma once

#include <map>
#include <string>

#include <nlohmann/json.hpp>

#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

// By their names.
using TParamTexts = std::map<std::string, std::string>;

// The call, with what `texts` say. Throws EProblem for a value that this machine does not allow; with `whole` also for
// one that is missing. `prefix`: what stands before a parameter's name where it was asked for.
[[nodiscard]] TMotionCall CallOf(const TProcedure& row, const TParamTexts& texts, const TMachineBounds& machine,
                                 bool whole, const char* prefix = "--");
// The call that runs alone; throws as CallOf, and for an input that never comes.
[[nodiscard]] TMotionCall CallAlone(const TProcedure& row, const TParamTexts& texts, const TMachineLimits& machine,
                                    const char* prefix = "--");
// An object of texts, numbers and truth values. Throws EProblem for anything else, and for a name that the row has not.
[[nodiscard]] TParamTexts TextsOf(const TProcedure& row, const nlohmann::json& params);
// "is no parameter of gas-on; did you mean branch?" Does not fail.
[[nodiscard]] std::string NoParameter(const TProcedure& row, const std::string& name);

}  // namespace ixocontroller
