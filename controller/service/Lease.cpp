#include "controller/service/Lease.h"

#include <utility>

#include "controller/access/Sha256.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kLeaseIdBytes = 8;

}  // namespace

const char* LeaseChangeWord(TLeaseChange change) {
  switch (change) {
    case lcTaken: return "taken";
    case lcTakenOver: return "takenOver";
    case lcGivenBack: return "givenBack";
    case lcRanOut: return "ranOut";
  }
  return "";
}

TLease::TLease(std::function<void(const TLeaseEvent&)> changed) : FChanged(std::move(changed)) {}

TResult<std::string> TLease::Take(const TAsker& who, std::string_view id, bool takeOver, std::uint64_t nowMs) {
  Watch(nowMs);
  if (Has(id)) {
    FUntilMs = nowMs + kLeaseMs;
    return FId;
  }
  if (FHolder && !takeOver)
    return TProblem{
        .What = Format(Tr("%s has the control lease"), FHolder->Name.c_str()),
        .Why = Format(Tr("it ends in %.1f s unless it is renewed"), static_cast<double>(LeftMs(nowMs)) / 1000.0),
        .Remedy = Tr("wait, or take it over: {\"takeOver\": true}")};
  FId = RandomHex(kLeaseIdBytes);
  FUntilMs = nowMs + kLeaseMs;
  Change(FHolder ? lcTakenOver : lcTaken, who);
  return FId;
}

TResult<> TLease::Heartbeat(std::string_view id, std::uint64_t nowMs) { return Admit(id, nowMs); }

TResult<> TLease::GiveBack(std::string_view id, std::uint64_t nowMs) {
  if (auto admitted = Admit(id, nowMs); !admitted) return admitted;
  Change(lcGivenBack, std::nullopt);
  return {};
}

TResult<> TLease::Admit(std::string_view id, std::uint64_t nowMs) {
  Watch(nowMs);
  if (Has(id)) {
    FUntilMs = nowMs + kLeaseMs;
    return {};
  }
  TProblem problem{.What = id.empty() ? Tr("this needs the control lease") : Tr("this control lease is over"),
                   .Why = {},
                   .Remedy = Tr("take the lease (POST /api/v1/lease), and send its id in the header \"Lease\"")};
  if (FHolder) problem.Why = Format(Tr("%s has the control lease"), FHolder->Name.c_str());
  return problem;
}

void TLease::Watch(std::uint64_t nowMs) {
  if (FHolder && nowMs >= FUntilMs) Change(lcRanOut, std::nullopt);
}

std::uint64_t TLease::LeftMs(std::uint64_t nowMs) const { return FHolder && FUntilMs > nowMs ? FUntilMs - nowMs : 0; }

void TLease::Change(TLeaseChange change, std::optional<TAsker> now) {
  if (!now) FId.clear();
  const TLeaseEvent event{change, std::exchange(FHolder, std::move(now)), FHolder};
  if (FChanged) FChanged(event);
}

}  // namespace ixocontroller
