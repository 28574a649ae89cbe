#include "platform/MachineConfig.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

#include <pugixml.hpp>

#include "platform/AppSys.h"
#include "platform/Log.h"
#include "support/Format.h"

namespace ixocamglue {

struct TConfigNode {
  std::string Name;
  std::string Text;
  std::vector<std::pair<std::string, std::string>> Attributes;
  std::vector<TConfigNode> Children;
};

namespace {

constexpr int kMaxDepth = 64;

bool SameFolded(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::ranges::equal(a, b, {}, lower, lower);
}

// The exact spelling, else the first that matches without regard to case.
template <class Items, class NameOf>
auto FindNamed(const Items& items, std::string_view name, NameOf nameOf) {
  const auto exact = std::ranges::find(items, name, nameOf);
  return exact != items.end()
             ? exact
             : std::ranges::find_if(items, [&](const auto& item) { return SameFolded(nameOf(item), name); });
}

std::string_view NameOfNode(const TConfigNode& node) { return node.Name; }
std::string_view NameOfAttribute(const std::pair<std::string, std::string>& attribute) { return attribute.first; }

const std::string* FindValue(const TConfigNode* node, std::string_view name) {
  if (!node) return nullptr;
  if (const auto it = FindNamed(node->Attributes, name, NameOfAttribute); it != node->Attributes.end())
    return &it->second;
  if (const auto it = FindNamed(node->Children, name, NameOfNode); it != node->Children.end()) return &it->Text;
  return nullptr;
}

std::string_view Trim(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  return first == std::string_view::npos ? std::string_view{}
                                         : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

template <class Number>
std::optional<Number> ParseNumber(std::string_view text) {
  text = Trim(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || text.empty()) return std::nullopt;
  if constexpr (std::is_floating_point_v<Number>)
    if (value - value != 0) return std::nullopt;  // "inf", "nan"
  return value;
}

std::optional<bool> ParseBool(std::string_view text) {
  text = Trim(text);
  if (SameFolded(text, "true")) return true;
  if (SameFolded(text, "false")) return false;
  if (const auto number = ParseNumber<std::int32_t>(text)) return *number != 0;
  return std::nullopt;
}

template <class Value, class Parse>
Value ReadValue(const TConfigNode* node, const std::string& path, std::string_view name, Value defValue, Parse parse) {
  const std::string* const text = FindValue(node, name);
  if (!text || Trim(*text).empty()) return defValue;
  if (const std::optional<Value> value = parse(*text)) return *value;
  const auto* config = MachineConfig();
  LogMsg(lkWarning, 0,
         Format("%s: %s/%.*s: \"%s\" cannot be read; the default is used", config ? config->File().c_str() : "",
                path.c_str(), static_cast<int>(name.size()), name.data(), text->c_str()));
  return defValue;
}

bool Copy(const pugi::xml_node& from, TConfigNode& to, int depth) {
  if (depth > kMaxDepth) return false;
  to.Name = from.name();
  to.Text = from.child_value();
  for (const auto& attribute : from.attributes()) to.Attributes.emplace_back(attribute.name(), attribute.value());
  for (const auto& child : from.children()) {
    if (child.type() != pugi::node_element) continue;
    if (!Copy(child, to.Children.emplace_back(), depth + 1)) return false;
  }
  return true;
}

}  // namespace

TConfigSection TConfigSection::Child(std::string_view name) const {
  std::string path = FPath.empty() ? std::string(name) : FPath + "/" + std::string(name);
  if (!FNode) return {nullptr, std::move(path)};
  const auto it = FindNamed(FNode->Children, name, NameOfNode);
  return {it == FNode->Children.end() ? nullptr : &*it, std::move(path)};
}

std::vector<TConfigSection> TConfigSection::Children(std::string_view name) const {
  std::vector<TConfigSection> found;
  if (!FNode) return found;
  for (const TConfigNode& child : FNode->Children) {
    if (!SameFolded(child.Name, name)) continue;
    found.emplace_back(&child, Format("%s/%s[%zu]", FPath.c_str(), child.Name.c_str(), found.size() + 1));
  }
  return found;
}

bool TConfigSection::GetBool(std::string_view name, bool defValue) const {
  return ReadValue(FNode, FPath, name, defValue, ParseBool);
}

std::int32_t TConfigSection::GetInt(std::string_view name, std::int32_t defValue) const {
  return ReadValue(FNode, FPath, name, defValue, ParseNumber<std::int32_t>);
}

double TConfigSection::GetFloat(std::string_view name, double defValue) const {
  return ReadValue(FNode, FPath, name, defValue, ParseNumber<double>);
}

std::string TConfigSection::GetText(std::string_view name, std::string_view defValue) const {
  const std::string* const text = FindValue(FNode, name);
  return text ? *text : std::string(defValue);
}

TMachineConfig::TMachineConfig() = default;
TMachineConfig::~TMachineConfig() = default;

std::string TMachineConfig::Load(const std::filesystem::path& file) {
  FFile = file;
  FRoot.reset();
  std::error_code error;
  std::ifstream in(file, std::ios::binary);
  if (!in || !std::filesystem::is_regular_file(file, error)) return Format("%s: the file cannot be read", file.c_str());
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};

  pugi::xml_document document;
  const pugi::xml_parse_result result = document.load_buffer(bytes.data(), bytes.size());
  if (!result) {
    const auto before = std::string_view(bytes).substr(0, static_cast<std::size_t>(std::max<long>(result.offset, 0)));
    const auto line = std::ranges::count(before, '\n') + 1;
    const auto lineStart = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    return Format("%s:%td:%zu: %s", file.c_str(), line, before.size() - lineStart + 1, result.description());
  }
  const pugi::xml_node root = document.document_element();
  if (std::string_view(root.name()) != "MachineConfig")
    return Format("%s: the document element is \"%s\", expected \"MachineConfig\"", file.c_str(), root.name());
  auto tree = std::make_unique<TConfigNode>();
  if (!Copy(root, *tree, 0)) return Format("%s: elements are nested deeper than %d", file.c_str(), kMaxDepth);
  FRoot = std::move(tree);
  return {};
}

TConfigSection TMachineConfig::Root() const { return {FRoot.get(), ""}; }

TConfigSection ConfigSection(std::string_view name) {
  const TMachineConfig* config = MachineConfig();
  return config ? config->Section(name) : TConfigSection(nullptr, std::string(name));
}

IXO_DEFINE_SERVICE(TMachineConfig, MachineConfig)

}  // namespace ixocamglue
