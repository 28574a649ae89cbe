#include "controller/procedures/Calls.h"

#include <algorithm>

#include "controller/procedures/ListCheck.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

TMotionCall CallOf(const TProcedure& row, const TParamTexts& texts, const TMachineBounds& machine, bool whole,
                   const char* prefix) {
  TMotionCall call{&row, TMotionValues(row.Params.size()), {}};
  const auto given = [&](auto use) {
    for (std::size_t i = 0; i < row.Params.size(); ++i)
      if (const auto text = texts.find(row.Params[i].Name); text != texts.end()) use(row.Params[i], i, text->second);
  };
  const auto refuse = [prefix](const TMotionParam& param, const TProblem& problem) {
    throw EProblem(pbRequest, std::string(prefix) + param.Name + ": " + problem.Text());
  };
  given([&](const TMotionParam& param, std::size_t i, const std::string& text) {
    const auto value = ParseParam(param, text);
    if (!value) refuse(param, value.Problem());
    call.Values[i] = *value;
  });
  if (whole)
    if (const auto needs = call.CheckNeeds(prefix); !needs)
      throw EProblem(pbRequest, std::string(row.Name) + ": " + needs.Problem().Text());
  given([&](const TMotionParam& param, std::size_t, const std::string&) {  // a range can depend on another value
    if (const auto checked = call.Check(param, machine); !checked) refuse(param, checked.Problem());
  });
  return call;
}

TMotionCall CallAlone(const TProcedure& row, const TParamTexts& texts, const TMachineLimits& machine,
                      const char* prefix) {
  TMotionCall call = CallOf(row, texts, machine.Bounds, true, prefix);
  if (row.Command == TSmtWaitInport::Cmd)
    if (const auto wrong = CheckList({&call, 1}, machine)) throw EProblem(pbRequest, wrong->second);
  return call;
}

TParamTexts TextsOf(const TProcedure& row, const nlohmann::json& params) {
  TParamTexts texts;
  if (params.is_null()) return texts;
  if (!params.is_object())
    throw EProblem(pbRequest, TProblem{.What = Tr("is no object of parameters"), .Where = "params"});
  for (const auto& [name, value] : params.items()) {
    if (std::ranges::none_of(row.Params, [&name = name](const TMotionParam& p) { return name == p.Name; }))
      throw EProblem(pbRequest, TProblem{.What = NoParameter(row, name), .Where = "params." + name});
    if (value.is_string())
      texts[name] = value.get<std::string>();
    else if (value.is_number() || value.is_boolean())
      texts[name] = value.dump();
    else
      throw EProblem(pbRequest, TProblem{.What = Tr("is neither a number nor a text"), .Where = "params." + name});
  }
  return texts;
}

std::string NoParameter(const TProcedure& row, const std::string& name) {
  TNearestName nearest(name);
  std::string names;
  nearest.Consider("description");
  for (const TMotionParam& p : row.Params) {
    nearest.Consider(p.Name);
    AddToList(names, p.Name);
  }
  return Format(Tr("is no parameter of %s"), row.Name) + "; " +
         nearest.DidYouMean(names.empty() ? std::string(Tr("it has none")) : Format(Tr("it has %s"), names.c_str()));
}

}  // namespace ixocontroller
