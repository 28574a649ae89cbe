#include "machines/linuxcnc/hal/HalComponent.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <hal.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

enum TOwnPin : std::size_t { opHeartbeat, opRearm, opClient, opServo, kOwnPins };

std::vector<THalPin> WithOwn(std::vector<THalPin> list) {
  for (const auto name : {kHalHeartbeat, kHalRearm, kHalClient}) list.push_back({hkBit, true, std::string(name)});
  list.push_back({hkFloat, false, std::string(kHalServo)});
  return list;
}

struct TRow {
  int Id = 0;
  pid_t Pid = 0;
};

// The component of this name as `halcmd` lists it: "ID Type Name PID State".
std::optional<TRow> FindComponent() {
  const std::unique_ptr<FILE, int (*)(FILE*)> list(popen("halcmd -s show comp 2>/dev/null", "r"), &pclose);
  if (!list) return std::nullopt;
  char line[256];
  while (std::fgets(line, sizeof line, list.get())) {
    char type[16] = "", name[HAL_NAME_LEN + 1] = "";
    TRow row;
    static_assert(HAL_NAME_LEN == 47);
    if (std::sscanf(line, "%d %15s %47s %d", &row.Id, type, name, &row.Pid) == 4 &&
        std::string_view(name) == kHalComponent)
      return row;
  }
  return std::nullopt;
}

// In a process of its own: the library counts the components of a process, and this one is not of ours.
bool RemoveDead(const TRow& row) {
  const pid_t child = fork();
  if (child == 0) {
    // Fails, as the name is taken, and has mapped HAL's memory then.
    const int second = hal_init(kHalComponent);
    _exit(second < 0 && hal_exit(row.Id) == 0 ? 0 : 1);
  }
  int status = 1;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status == 0;
}

}  // namespace

union THalComponent::TCell {
  hal_bit_t* Bit;
  hal_float_t* Float;
  hal_s32_t* S32;
};

THalComponent::THalComponent(const std::vector<THalPin>& list) : FOwn(list.size()), FPins(WithOwn(list)) {}

THalComponent::~THalComponent() {
  if (FComponent >= 0) hal_exit(FComponent);
}

TResult<> THalComponent::Make(bool& recovered) {
  recovered = false;
  if (const auto row = FindComponent()) {
    if (kill(row->Pid, 0) == 0 || errno == EPERM)
      return TProblem{
          .What = Format("HAL has a component \"%s\", process %d", kHalComponent, static_cast<int>(row->Pid)),
          .Remedy = "end that process first"};
    if (!RemoveDead(*row))
      return TProblem{.What = Format("the component of the dead process %d stays in HAL", static_cast<int>(row->Pid)),
                      .Remedy = "end LinuxCNC and start it again"};
    recovered = true;
  }
  FComponent = hal_init(kHalComponent);
  if (FComponent < 0)
    return TProblem{.What = Format("HAL takes no component: error %d", FComponent),
                    .Remedy = "start it by LinuxCNC's HAL file, or as the user who runs LinuxCNC"};
  FCells = static_cast<TCell*>(hal_malloc(static_cast<long>(sizeof(TCell) * FPins.size())));
  if (!FCells) return TProblem{.What = "HAL has no memory left", .Remedy = "end LinuxCNC and start it again"};
  for (std::size_t i = 0; i < FPins.size(); ++i)
    if (!MakePin(FPins[i], FCells[i]))
      return TProblem{.What = Format("HAL does not take the pin \"%s\"", FPins[i].Name.c_str())};
  return {};
}

TResult<> THalComponent::Ready() {
  if (const int error = hal_ready(FComponent); error < 0)
    return TProblem{.What = Format("HAL does not take that the component is ready: error %d", error)};
  return {};
}

bool THalComponent::MakePin(const THalPin& pin, TCell& cell) const {
  const std::string name = std::string(kHalComponent) + "." + pin.Name;
  const hal_pin_dir_t dir = pin.Output ? HAL_OUT : HAL_IN;
  switch (pin.Kind) {
    case hkBit: return hal_pin_bit_new(name.c_str(), dir, &cell.Bit, FComponent) == 0;
    case hkFloat: return hal_pin_float_new(name.c_str(), dir, &cell.Float, FComponent) == 0;
    case hkS32: return hal_pin_s32_new(name.c_str(), dir, &cell.S32, FComponent) == 0;
  }
  return false;
}

double THalComponent::Read(std::size_t pin) const {
  const TCell& cell = FCells[pin];
  switch (FPins[pin].Kind) {
    case hkBit: return *cell.Bit ? 1.0 : 0.0;
    case hkFloat: return *cell.Float;
    case hkS32: return *cell.S32;
  }
  return 0.0;
}

void THalComponent::Write(std::size_t pin, double value) {
  const TCell& cell = FCells[pin];
  switch (FPins[pin].Kind) {
    case hkBit: *cell.Bit = value != 0.0; break;
    case hkFloat: *cell.Float = value; break;
    case hkS32: *cell.S32 = static_cast<std::int32_t>(value); break;
  }
}

double THalComponent::ServoSeconds() const { return *FCells[FOwn + opServo].Float; }
void THalComponent::SetHeartbeat(bool on) { *FCells[FOwn + opHeartbeat].Bit = on; }
void THalComponent::SetRearm(bool on) { *FCells[FOwn + opRearm].Bit = on; }
void THalComponent::SetClient(bool on) { *FCells[FOwn + opClient].Bit = on; }

}  // namespace ixocamglue
