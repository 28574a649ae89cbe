#include "ixocamglue/platform/xml/JogSections.h"

#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

void TJogXYRecord::Publish(TPublisher& p) {
  constexpr TJogXYSection def;
  p.Field("LowJogSpeed", Values.LowJogSpeed, def.LowJogSpeed)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("Speed of the X and Y jog keys at the low step of the knob"));
  p.Field("NormalJogSpeed", Values.NormalJogSpeed, def.NormalJogSpeed)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("Speed of the X and Y jog keys at the normal step of the knob"));
  p.Field("HighJogSpeed", Values.HighJogSpeed, def.HighJogSpeed)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("Speed of the X and Y jog keys at the high step of the knob"));
}

void TJogZRecord::Publish(TPublisher& p) {
  constexpr TJogZSection def;
  p.Field("Head", Head, 1, kOptional)
      .Within(1, 2)
      .Text(TrMark("Cutting head whose jog speeds these are, counted from 1"));
  p.Field("AxisNo", Values.AxisNo, def.AxisNo, kOptional)
      .Within(bdAtLeast(0))
      .Text(TrMark("Number of the axis that the Z jog keys move, counted from 0"));
  p.Field("LowJogSpeed", Values.LowJogSpeed, def.LowJogSpeed)
      .Unit(uMmPerS)
      .Within(bdZSpeed)
      .Text(TrMark("Speed of the Z jog keys at the low step of the knob"));
  p.Field("NormalJogSpeed", Values.NormalJogSpeed, def.NormalJogSpeed)
      .Unit(uMmPerS)
      .Within(bdZSpeed)
      .Text(TrMark("Speed of the Z jog keys at the normal step of the knob"));
  p.Field("HighJogSpeed", Values.HighJogSpeed, def.HighJogSpeed)
      .Unit(uMmPerS)
      .Within(bdZSpeed)
      .Text(TrMark("Speed of the Z jog keys at the high step of the knob"));
  p.Field("JogSpeed", Values.JogSpeed, def.JogSpeed)
      .Unit(uMmPerS)
      .Within(bdZSpeed)
      .Text(TrMark("Speed of the Z jog keys that is in force below the high step"));
}

void TJogRecord::Publish(TPublisher& p) {
  p.Child("JogXY", XY);
  p.List("JogZ", Z);
}

void TJogSections::Load(TMachineConfig& config) {
  TGuard turn(FSaving);
  config.Root().Load(FRecord);
  TGuard guard(FLock);
  FConfig = config.Root().Exists() ? &config : nullptr;
  FXY = FRecord.XY.Values;
  FZ = {};
  FZKnown = {};
  for (const auto& record : FRecord.Z) {
    if (record->Head < 1 || record->Head > static_cast<std::int32_t>(kHeads)) continue;
    const auto i = static_cast<std::size_t>(record->Head - 1);
    FZ[i] = record->Values;
    FZKnown[i] = true;
  }
}

bool TJogSections::Loaded() const {
  TGuard guard(FLock);
  return FConfig != nullptr;
}

TJogXYSection TJogSections::XY() const {
  TGuard guard(FLock);
  return FXY;
}

void TJogSections::SetXY(const TJogXYSection& section) {
  TGuard guard(FLock);
  FXY = section;
}

TJogZSection TJogSections::Z(std::size_t head) const {
  TGuard guard(FLock);
  return FZ[head];
}

void TJogSections::SetZ(std::size_t head, const TJogZSection& section) {
  TGuard guard(FLock);
  FZ[head] = section;
  FZKnown[head] = true;
}

TResult<std::string> TJogSections::Save() {
  TGuard turn(FSaving);
  TMachineConfig* config = nullptr;
  {
    TGuard guard(FLock);
    config = FConfig;
    FRecord.XY.Values = FXY;
    for (std::size_t i = 0; i < kHeads; ++i)
      if (FZKnown[i]) Record(static_cast<std::int32_t>(i) + 1).Values = FZ[i];
  }
  return config ? config->SaveAlone(FRecord) : TResult<std::string>(std::string());
}

// The one that was loaded last of those for the head, as the load takes it.
TJogZRecord& TJogSections::Record(std::int32_t head) {
  TJogZRecord* found = nullptr;
  for (const auto& record : FRecord.Z)
    if (record->Head == head) found = record.get();
  if (found) return *found;
  TJogZRecord& made = FRecord.Z.AddNew();
  made.Head = head;
  return made;
}

IXO_DEFINE_SERVICE(TJogSections, JogSections)

}  // namespace ixocamglue
