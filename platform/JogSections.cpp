#include "platform/JogSections.h"

#include <charconv>
#include <sstream>
#include <string_view>

#include <pugixml.hpp>

#include "platform/FileLayer.h"
#include "platform/MachineConfig.h"
#include "support/Format.h"

namespace ixocamglue {
namespace {

constexpr const char* kXY = "JogXY";
constexpr const char* kZ = "JogZ";

template <class Number>
std::string Shortest(Number value) {
  char text[64];
  const auto [end, error] = std::to_chars(text, text + sizeof text, value);
  return {text, end};
}

// A value that stands there already, spelled otherwise, keeps its spelling.
template <class Number>
void Put(pugi::xml_node& node, const char* name, Number value, bool& changed) {
  pugi::xml_attribute attribute = node.attribute(name);
  if (attribute) {
    const std::string_view text = attribute.value();
    Number present{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), present);
    if (error == std::errc{} && end == text.data() + text.size() && present == value) return;
  } else {
    attribute = node.append_attribute(name);
  }
  attribute.set_value(Shortest(value).c_str());
  changed = true;
}

pugi::xml_node SectionOf(pugi::xml_node root, const char* name, std::size_t head) {
  for (pugi::xml_node node : root.children(name))
    if (node.attribute("Head").as_uint(1) == head + 1) return node;
  pugi::xml_node node = root.append_child(name);
  if (head > 0) node.append_attribute("Head").set_value(static_cast<unsigned>(head + 1));
  return node;
}

}  // namespace

void TJogSections::Load(const TMachineConfig& config) {
  TJogXYSection xy;
  const TConfigSection section = config.Section(kXY);
  xy.LowJogSpeed = section.GetFloat("LowJogSpeed", xy.LowJogSpeed);
  xy.NormalJogSpeed = section.GetFloat("NormalJogSpeed", xy.NormalJogSpeed);
  xy.HighJogSpeed = section.GetFloat("HighJogSpeed", xy.HighJogSpeed);

  std::array<TJogZSection, kHeads> z;
  std::array<bool, kHeads> known{};
  for (const TConfigSection& of : config.Root().Children(kZ)) {
    const std::int32_t head = of.GetInt("Head", 1);
    if (head < 1 || head > static_cast<std::int32_t>(kHeads)) continue;
    const auto i = static_cast<std::size_t>(head - 1);
    z[i].LowJogSpeed = of.GetFloat("LowJogSpeed", z[i].LowJogSpeed);
    z[i].NormalJogSpeed = of.GetFloat("NormalJogSpeed", z[i].NormalJogSpeed);
    z[i].HighJogSpeed = static_cast<float>(of.GetFloat("HighJogSpeed", static_cast<double>(z[i].HighJogSpeed)));
    z[i].JogSpeed = static_cast<float>(of.GetFloat("JogSpeed", static_cast<double>(z[i].JogSpeed)));
    z[i].AxisNo = of.GetInt("AxisNo", z[i].AxisNo);
    known[i] = true;
  }
  TGuard guard(FLock);
  FFile = config.Root().Exists() ? config.File() : std::filesystem::path();
  FXY = xy;
  FZ = z;
  FZKnown = known;
}

bool TJogSections::Loaded() const {
  TGuard guard(FLock);
  return !FFile.empty();
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

bool TJogSections::Save(std::string* problem) {
  std::string ignored;
  std::string& why = problem ? *problem : ignored;
  TGuard turn(FSaving);
  std::filesystem::path file;
  TJogXYSection xy;
  std::array<TJogZSection, kHeads> z;
  std::array<bool, kHeads> known{};
  {
    TGuard guard(FLock);
    file = FFile;
    xy = FXY;
    z = FZ;
    known = FZKnown;
  }
  if (file.empty()) return true;

  pugi::xml_document document;
  const auto read = document.load_file(file.c_str(), pugi::parse_full | pugi::parse_ws_pcdata);
  pugi::xml_node root = document.document_element();
  if (!read || std::string_view(root.name()) != "MachineConfig") {
    why = Format("%s: not saved: %s", file.c_str(), read ? "no machine configuration any more" : read.description());
    return false;
  }
  bool changed = false;
  pugi::xml_node section = SectionOf(root, kXY, 0);
  Put(section, "LowJogSpeed", xy.LowJogSpeed, changed);
  Put(section, "NormalJogSpeed", xy.NormalJogSpeed, changed);
  Put(section, "HighJogSpeed", xy.HighJogSpeed, changed);
  for (std::size_t head = 0; head < kHeads; ++head) {
    if (!known[head]) continue;
    section = SectionOf(root, kZ, head);
    Put(section, "LowJogSpeed", z[head].LowJogSpeed, changed);
    Put(section, "NormalJogSpeed", z[head].NormalJogSpeed, changed);
    Put(section, "HighJogSpeed", z[head].HighJogSpeed, changed);
    Put(section, "JogSpeed", z[head].JogSpeed, changed);
  }
  if (!changed) return true;
  std::ostringstream bytes;
  // The parser keeps no white space outside the document element.
  for (const pugi::xml_node& node : document.children()) {
    node.print(bytes, "", pugi::format_raw, pugi::encoding_utf8);
    bytes << '\n';
  }
  const TReplaced replaced = ReplaceFile(file.string(), bytes.str(), ".bak");
  why = replaced.Problem;
  return replaced.Done;
}

IXO_DEFINE_SERVICE(TJogSections, JogSections)

}  // namespace ixocamglue
