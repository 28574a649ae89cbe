#include "ixocamglue/platform/xml/XmlElement.h"

#include <algorithm>
#include <memory>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

bool IsBlank(const pugi::xml_node& node) { return node.type() == pugi::node_pcdata && TrimXml(node.value()).empty(); }

// The line break and the indent in front of a child of `parent`, taken from one that is there.
std::string Indent(const pugi::xml_node& parent) {
  for (const auto& child : parent.children())
    if (child.type() == pugi::node_element) {
      if (const auto before = child.previous_sibling(); IsBlank(before)) return before.value();
      return {};
    }
  if (const auto before = parent.previous_sibling(); IsBlank(before)) {
    const std::string_view text = before.value();
    return std::string(text.substr(std::min(text.find_last_of('\n'), text.size() - 1))) + "  ";
  }
  return parent.parent().type() == pugi::node_document ? "\n  " : "";
}

std::string Outdent(const pugi::xml_node& parent, const std::string& indent) {
  if (const auto before = parent.previous_sibling(); IsBlank(before)) {
    const std::string_view text = before.value();
    const auto line = text.find_last_of('\n');
    return std::string(line == std::string_view::npos ? text : text.substr(line));
  }
  return indent.empty() ? "" : "\n";
}

}  // namespace

TXmlElement::TXmlElement(TXmlNode node) : FNode(node.Handle()), FContext(node.Context()) {
  const auto add = [&](TEntry entry) {
    if (FCount < kInPlace) {
      std::construct_at(&FInPlace[FCount], entry);
    } else {
      if (FCount == kInPlace) FMore.assign(FInPlace.begin(), FInPlace.end());
      FMore.push_back(entry);
    }
    ++FCount;
  };
  for (auto a = FNode.first_attribute(); a; a = a.next_attribute()) add({TPropName::HashOf(a.name()), false, a, {}});
  for (auto e = FNode.first_child(); e; e = e.next_sibling())
    if (e.type() == pugi::node_element) add({TPropName::HashOf(e.name()), false, {}, e});
  FBegin = FCount <= kInPlace ? FInPlace.data() : FMore.data();
}

TXmlElement::TEntry* TXmlElement::Value(const TPropName& name) {
  TEntry* best = nullptr;
  int bestRank = 4;
  for (TEntry& entry : Entries()) {
    if (entry.Hash != name.Hash || (!entry.Attribute && !entry.Element)) continue;
    const std::string_view spelled = entry.Name();
    const bool exact = spelled == name.Text;
    if (!exact && !SameFolded(spelled, name.Text)) continue;
    const int rank = (entry.Attribute ? 0 : 2) + (exact ? 0 : 1);
    if (rank >= bestRank || (!entry.Attribute && !IsValue(entry))) continue;
    best = &entry;
    bestRank = rank;
    if (rank == 0) break;
  }
  return best;
}

TXmlElement::TEntry* TXmlElement::Element(const TPropName& name) {
  TEntry* folded = nullptr;
  for (TEntry& entry : Entries()) {
    if (entry.Hash != name.Hash || !entry.Element) continue;
    if (entry.Name() == name.Text) return &entry;
    if (!folded && SameFolded(entry.Name(), name.Text)) folded = &entry;
  }
  return folded;
}

bool TXmlElement::IsValue(const TEntry& entry) {
  if (entry.Attribute) return true;
  if (!entry.Element) return false;
  for (auto child = entry.Element.first_child(); child; child = child.next_sibling())
    if (child.type() == pugi::node_element) return false;
  return true;
}

std::string_view TXmlElement::Text(const TEntry& entry, std::string& scratch) {
  if (entry.Attribute) return entry.Attribute.value();
  const auto first = entry.Element.first_child();
  if (!first) return {};
  if (IsText(first) && !first.next_sibling()) return first.value();
  scratch.clear();
  for (auto child = first; child; child = child.next_sibling())
    if (IsText(child)) scratch += child.value();
  return scratch;
}

void TXmlElement::SetText(TEntry& entry, const std::string& text) {
  if (!Holdable(text)) return;
  FContext.Changed = true;
  if (entry.Attribute) {
    entry.Attribute.set_value(text.c_str());
    return;
  }
  bool written = false;
  for (auto child = entry.Element.first_child(); child;) {
    const auto next = child.next_sibling();
    if (IsText(child)) {
      if (!written && !text.empty())
        child.set_value(text.c_str());
      else
        entry.Element.remove_child(child);
      written = true;
    }
    child = next;
  }
  if (!written && !text.empty()) entry.Element.append_child(pugi::node_pcdata).set_value(text.c_str());
}

void TXmlElement::Rename(TEntry& entry, std::string_view name) {
  if (entry.Name() == name) return;
  FContext.Changed = true;
  if (entry.Attribute)
    entry.Attribute.set_name(std::string(name).c_str());
  else
    entry.Element.set_name(std::string(name).c_str());
}

void TXmlElement::Rename(pugi::xml_node element, std::string_view name) {
  if (element.name() == name) return;
  FContext.Changed = true;
  element.set_name(std::string(name).c_str());
}

void TXmlElement::AddValue(std::string_view name, const std::string& text) {
  if (!Holdable(text)) return;
  FContext.Changed = true;
  FNode.append_attribute(std::string(name).c_str()).set_value(text.c_str());
}

void TXmlElement::Remove(TEntry& entry) {
  FContext.Changed = true;
  if (entry.Attribute)
    FNode.remove_attribute(entry.Attribute);
  else
    RemoveElement(entry.Element);
  entry.Attribute = pugi::xml_attribute();
  entry.Element = pugi::xml_node();
}

void TXmlElement::RemoveShadows(const TEntry& attribute, const TPropName& name) {
  for (TEntry& entry : Entries())
    if (&entry != &attribute && entry.Hash == name.Hash && entry.Element && SameFolded(entry.Name(), name.Text) &&
        IsValue(entry))
      Remove(entry);
}

pugi::xml_node TXmlElement::AppendElement(std::string_view name) {
  FContext.Changed = true;
  const std::string indent = Indent(FNode);
  const auto last = FNode.last_child();
  const bool closes = IsBlank(last);  // the white space in front of the end tag stays there
  if (!indent.empty()) {
    auto space = closes ? FNode.insert_child_before(pugi::node_pcdata, last) : FNode.append_child(pugi::node_pcdata);
    space.set_value(indent.c_str());
  }
  const std::string text(name);
  auto element = closes ? FNode.insert_child_before(text.c_str(), last) : FNode.append_child(text.c_str());
  if (!closes && !indent.empty()) FNode.append_child(pugi::node_pcdata).set_value(Outdent(FNode, indent).c_str());
  return element;
}

pugi::xml_node TXmlElement::InsertElement(std::string_view name, pugi::xml_node after, pugi::xml_node before) {
  if (!after && !before) return AppendElement(name);
  FContext.Changed = true;
  const std::string indent = Indent(FNode);
  const std::string text(name);
  auto element =
      after ? FNode.insert_child_after(text.c_str(), after) : FNode.insert_child_before(text.c_str(), before);
  if (!indent.empty()) {
    auto space = after ? FNode.insert_child_before(pugi::node_pcdata, element)
                       : FNode.insert_child_after(pugi::node_pcdata, element);
    space.set_value(indent.c_str());
  }
  return element;
}

void TXmlElement::MoveAfter(pugi::xml_node element, pugi::xml_node after) {
  FContext.Changed = true;
  FNode.insert_move_after(element, after);
}

void TXmlElement::RemoveElement(pugi::xml_node element) {
  FContext.Changed = true;
  if (const auto before = element.previous_sibling(); IsBlank(before)) FNode.remove_child(before);
  FNode.remove_child(element);
}

bool TXmlElement::Holdable(const std::string& text) {
  std::size_t wrong = 0;
  if (IsXmlText(text, wrong)) return true;
  if (FContext.Problem.empty())
    FContext.Problem =
        Format(Tr("%s: a text is no UTF-8 or holds a character that XML does not have, and cannot be stored"),
               TXmlNode(FNode.internal_object(), &FContext).Path().c_str());
  return false;
}

}  // namespace ixocamglue
