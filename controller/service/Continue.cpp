#include "controller/service/Continue.h"

#include <algorithm>
#include <array>
#include <random>
#include <utility>

#include "controller/access/Sha256.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::array<std::string_view, 4> kGoesOnAfter{"paused", "stopped", "alarm", "error"};

// A list's own steps are its calls; a single procedure's are its inside.
std::size_t CallThatStood(const TCallList& list, const std::vector<TStepSpan>& steps) {
  if (list.Calls.size() < 2) return 0;
  const auto last = std::ranges::find(steps.rbegin(), steps.rend(), 0, &TStepSpan::Level);
  return last == steps.rend() ? 0 : static_cast<std::size_t>(std::max(last->Number, 1) - 1);
}

}  // namespace

void TContinue::Began(std::int64_t run, TCallList list, TMachineSnapshot start) {
  FGiven.reset();
  TRun begun;
  begun.Id = run;
  begun.List = std::move(list);
  begun.Machine.Start = std::move(start);
  FRun = std::move(begun);
}

void TContinue::Ended(std::int64_t run, std::string_view outcome, const std::vector<TStepSpan>& steps,
                      TMachineSnapshot end) {
  if (!FRun || FRun->Id != run) return;
  FRun->Outcome = outcome;
  FRun->At = CallThatStood(FRun->List, steps);
  FRun->Machine.End = std::move(end);
}

TResult<TReentry> TContinue::Find(const TMachineSnapshot& now) {
  if (!FRun)
    return TProblem{.What = Tr("nothing has run since the controller was started"),
                    .Where = {},
                    .Why = Tr("a run of an earlier start does not go on")};
  if (FRun->Outcome.empty())
    return TProblem{.What = Tr("a procedure is running"), .Remedy = Tr("stop it, or wait until it has ended")};
  if (std::ranges::find(kGoesOnAfter, FRun->Outcome) == kGoesOnAfter.end())
    return TProblem{.What = Tr("the last run was neither paused nor stopped, and it did not fail"),
                    .Where = FRun->List.Name};
  if (FRun->List.Calls.empty()) return TProblem{.What = Tr("it has no re-entry points"), .Where = FRun->List.Name};
  FRun->Machine.Now = now;
  return FindReentry(FRun->List.Calls, FRun->At, FRun->Machine);
}

std::vector<TMotionCall> TContinue::CallsFrom(std::size_t first) const {
  return {FRun->List.Calls.begin() + static_cast<std::ptrdiff_t>(first), FRun->List.Calls.end()};
}

TResult<TContinue::TOffer> TContinue::Offer(const TMachineSnapshot& now, std::uint64_t realMs) {
  TResult<TReentry> found = Find(now);
  if (!found) return found.Problem();
  FGiven = TGiven{RandomHex(8), found->From, now, realMs};
  std::vector<TMotionCall> calls = CallsFrom(found->From);
  return TOffer{FRun->Id, FGiven->Token, *std::move(found), FRun->List.Name, std::move(calls)};
}

TResult<TCallList> TContinue::Confirm(std::string_view token, const TMachineSnapshot& now, std::uint64_t realMs) {
  const std::optional<TGiven> given = std::exchange(FGiven, std::nullopt);
  if (!given || token != given->Token || realMs - given->RealMs > kConfirmWithinMs)
    return TProblem{.What = Tr("this list was not offered, or too long ago"),
                    .Where = {},
                    .Why = {},
                    .Remedy = Tr("ask again, and confirm what is shown then")};
  const TResult<TReentry> found = Find(now);
  if (!found) return found.Problem();
  if (found->From != given->From || !StandsAs(now, given->Shown))
    return TProblem{.What = Tr("the machine is not any more as it was when the list was shown"),
                    .Where = {},
                    .Why = {},
                    .Remedy = Tr("ask again, and confirm what is shown then")};
  return TCallList{FRun->List.Name, FRun->List.Sequence, CallsFrom(found->From)};
}

}  // namespace ixocontroller
