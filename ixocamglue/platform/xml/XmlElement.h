// The attributes and child elements of one element, found by name in one comparison of hashes each, and the edits of a
// save. For the sources of platform/ only.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

#include "ixocamglue/platform/xml/XmlSubConfig.h"

namespace ixocamglue {

[[nodiscard]] inline bool IsText(const pugi::xml_node& node) {
  return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

class TXmlElement {
 public:
  struct TEntry {
    std::uint32_t Hash = 0;
    bool Used = false;
    pugi::xml_attribute Attribute;  // either this
    pugi::xml_node Element;         // or that; neither after it was removed
    [[nodiscard]] std::string_view Name() const { return Attribute ? Attribute.name() : Element.name(); }
  };

  explicit TXmlElement(TXmlNode node);
  ~TXmlElement() {}  // entries need no end
  TXmlElement(const TXmlElement&) = delete;
  TXmlElement& operator=(const TXmlElement&) = delete;

  [[nodiscard]] std::span<TEntry> Entries() { return {FBegin, FCount}; }
  // The value of this name: an attribute first, then an element without elements; the exact spelling first, then the
  // first without regard to case. Null: missing.
  TEntry* Value(const TPropName& name);
  TEntry* Element(const TPropName& name);
  [[nodiscard]] static bool IsValue(const TEntry& entry);
  // Valid until the entry changes; `scratch` holds it where it stands in several pieces.
  [[nodiscard]] static std::string_view Text(const TEntry& entry, std::string& scratch);

  // Edits; each marks the context as changed.
  void SetText(TEntry& entry, const std::string& text);
  void Rename(TEntry& entry, std::string_view name);
  void Rename(pugi::xml_node element, std::string_view name);
  void AddValue(std::string_view name, const std::string& text);
  void Remove(TEntry& entry);
  // Removes the elements that an attribute of their name hides.
  void RemoveShadows(const TEntry& attribute, const TPropName& name);
  pugi::xml_node AppendElement(std::string_view name);
  pugi::xml_node InsertElement(std::string_view name, pugi::xml_node after, pugi::xml_node before);
  void MoveAfter(pugi::xml_node element, pugi::xml_node after);
  void RemoveElement(pugi::xml_node element);

  [[nodiscard]] pugi::xml_node Node() const { return FNode; }
  [[nodiscard]] TXmlContext& Context() const { return FContext; }
  [[nodiscard]] bool Holdable(const std::string& text);

 private:
  static constexpr std::size_t kInPlace = 40;

  pugi::xml_node FNode;
  TXmlContext& FContext;
  TEntry* FBegin = nullptr;
  std::size_t FCount = 0;
  union {  // filled as far as FCount says; most elements have few entries
    std::array<TEntry, kInPlace> FInPlace;
  };
  std::vector<TEntry> FMore;
};

}  // namespace ixocamglue
