#include "controller/config/LiveConfig.h"

#include <algorithm>
#include <functional>

#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

std::string_view SectionOf(std::string_view path) { return path.substr(0, path.find_first_of("/[")); }

// The jog sections have their values in force beside the configuration.
void TakeJog(const TJogRecord& record) {
  TJogSections* const jog = JogSections();
  if (!jog) return;
  jog->SetXY(record.XY.Values);
  for (const auto& head : record.Z)
    if (head->Head >= 1 && head->Head <= static_cast<std::int32_t>(TJogSections::kHeads))
      jog->SetZ(static_cast<std::size_t>(head->Head - 1), head->Values);
}

bool IsJog(std::string_view section) { return SameFolded(section, "JogXY") || SameFolded(section, "JogZ"); }

}  // namespace

TResult<std::string> TLiveConfig::VersionOf(const std::filesystem::path& file) {
  const auto bytes = ReadFile(file);
  if (!bytes) return bytes.Problem();
  return Format("%016zx", std::hash<std::string>()(*bytes));
}

bool TLiveConfig::HasRecord(std::string_view path) const {
  return std::ranges::any_of(FConfig.SubConfigs(),
                             [&](const auto& sub) { return SameFolded(sub.Name, SectionOf(path)); });
}

TLiveConfig::TSet TLiveConfig::Set(const std::string& path, const std::string& value, bool force) {
  TMachineFile file(FMachines);
  Load(file);
  TSet done;
  done.Before = FindProperty(file.Config(), path).OrThrow(pbRequest).Value;
  done.Wrong = file.Set(path, value, force);
  const std::string_view section = SectionOf(path);
  if (HasRecord(path)) {
    const std::string before = FindProperty(FConfig, path).OrThrow(pbRequest).Value;
    SetProperty(FConfig, path, value).OrThrow(pbRequest);
    auto saved = FConfig.Save();
    if (!saved) {
      (void)SetProperty(FConfig, path, before);
      throw EProblem(pbUnusable, saved.Problem());
    }
    done.Unsure = *saved;
    // What any machine has is taken over when it is made.
    const TMachineConfig platform;
    const auto taken = platform.SubConfigs();
    done.Now = std::ranges::none_of(taken, [&](const auto& sub) { return SameFolded(sub.Name, section); });
  } else {
    done.Unsure = FConfig.SaveAlone(file.Config().StartSections()).OrThrow(pbUnusable);
    done.Now = IsJog(section);
    if (done.Now) TakeJog(file.Config().Jog());
  }
  done.View = FindProperty(file.Config(), path).OrThrow(pbRequest);
  return done;
}

std::string TLiveConfig::Restore() {
  std::string kept = FConfig.Restore().OrThrow(pbUnusable);
  if (TJogSections* const jog = JogSections()) jog->Load(FConfig);
  return kept;
}

void TLiveConfig::Reread() {
  {
    TMachineFile file(FMachines);
    Load(file);
  }
  FConfig.Load(File()).OrThrow(pbUnusable);
  if (TJogSections* const jog = JogSections()) jog->Load(FConfig);
}

}  // namespace ixocontroller
