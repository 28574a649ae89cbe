#include "ixocamglue/platform/xml/XmlDocument.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <unordered_set>
#include <utf8.h>
#include <utility>

#include <pugixml.hpp>

#include "ixocamglue/platform/xml/XmlElement.h"
#include "ixocamglue/platform/xml/XmlWriter.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

// Everything is kept. Line ends stay as they are in the file.
constexpr unsigned kParse = (pugi::parse_full | pugi::parse_ws_pcdata | pugi::parse_fragment) & ~pugi::parse_eol;
constexpr unsigned kParseValues =
    (kParse | pugi::parse_ws_pcdata_single) & ~(pugi::parse_comments | pugi::parse_ws_pcdata);

pugi::xml_node Node(const TXmlNode& node) { return pugi::xml_node(node.Handle()); }

TProblem AtPlace(std::string place, std::string what) { return {.What = std::move(what), .Where = std::move(place)}; }
TProblem AtStart(std::string what) { return AtPlace("1:1", std::move(what)); }

bool IsXmlChar(char32_t c) {
  if (c < 0x20) return c == '\t' || c == '\n' || c == '\r';
  return c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF) && c != 0xFFFE && c != 0xFFFF;
}

// Whether the reference "&#..." at the front stands for a character that XML does not have. What is no reference stands
// for itself.
bool IsWrongReference(std::string_view text) {
  text.remove_prefix(2);
  const bool hex = text.starts_with('x');
  if (hex) text.remove_prefix(1);
  const std::size_t end = text.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789");
  if (end == 0 || end == std::string_view::npos || text[end] != ';') return false;
  const auto number = ParseExactly<std::uint32_t>(text.substr(0, end), hex ? 16 : 10);
  return !number || !IsXmlChar(*number);
}

const char* Syntax(pugi::xml_parse_status status) {
  switch (status) {
    case pugi::status_bad_pi: return Tr("a processing instruction or declaration is not as XML has it");
    case pugi::status_bad_comment: return Tr("a comment does not end");
    case pugi::status_bad_cdata: return Tr("a CDATA section does not end");
    case pugi::status_bad_doctype: return Tr("the document type is not as XML has it");
    case pugi::status_bad_start_element: return Tr("a start tag is not as XML has it, or does not end");
    case pugi::status_bad_attribute: return Tr("an attribute is not as XML has it");
    case pugi::status_bad_end_element: return Tr("an end tag is not as XML has it, or does not end");
    case pugi::status_end_element_mismatch:
      return Tr("an end tag is missing, or is not that of the element that is open");
    default: return Tr("this is not XML");
  }
}

// The number, from 0, of an attribute whose name stands in the element twice.
std::optional<std::size_t> RepeatedAttribute(const pugi::xml_node& element) {
  constexpr std::size_t kFew = 16;
  std::array<std::string_view, kFew> few;
  std::unordered_set<std::string_view> many;
  std::size_t count = 0;
  for (auto attribute = element.first_attribute(); attribute; attribute = attribute.next_attribute()) {
    const std::string_view name = attribute.name();
    if (count == kFew) many.insert(few.begin(), few.end());
    bool isNew = false;
    if (count < kFew) {
      const auto end = few.begin() + static_cast<std::ptrdiff_t>(count);
      isNew = std::find(few.begin(), end, name) == end;
      *end = name;
    } else {
      isNew = many.insert(name).second;
    }
    if (!isNew) return count;
    ++count;
  }
  return std::nullopt;
}

// Behind the ">" that closes the tag.
std::size_t TagEnd(std::string_view text, std::size_t at) {
  for (at = text.find_first_of("\"'>", at); at != std::string_view::npos; at = text.find_first_of("\"'>", at)) {
    if (text[at] == '>') return at + 1;
    at = text.find(text[at], at + 1);
    if (at != std::string_view::npos) ++at;
  }
  return text.size();
}

// False where a unit is half of a character.
bool FromUtf16(std::string_view bytes, bool bigEndian, std::string& out) {
  if (bytes.size() % 2 != 0) return false;
  std::u16string units(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < units.size(); ++i) {
    const auto a = static_cast<unsigned char>(bytes[2 * i]), b = static_cast<unsigned char>(bytes[2 * i + 1]);
    units[i] = static_cast<char16_t>(bigEndian ? a << 8 | b : b << 8 | a);
  }
  try {
    out = utf8::utf16to8(units);
    return true;
  } catch (const utf8::exception&) {
    return false;
  }
}

// Of well-formed UTF-8.
std::string ToUtf16(std::string_view text, bool bigEndian) {
  std::string out;
  out.reserve(text.size() * 2);
  for (const char16_t unit : utf8::utf8to16(text)) {
    const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
    out += bigEndian ? high : low;
    out += bigEndian ? low : high;
  }
  return out;
}

}  // namespace

bool IsXmlText(std::string_view text, std::size_t& wrong) {
  std::size_t i = 0;
  while (i < text.size()) {
    if (i + 8 <= text.size()) {  // eight ASCII characters at once, none of them below U+0020
      std::uint64_t word = 0;
      std::memcpy(&word, text.data() + i, 8);
      if (((word | (word - 0x2020202020202020u)) & 0x8080808080808080u) == 0) {
        i += 8;
        continue;
      }
    }
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const auto from = text.begin() + static_cast<std::ptrdiff_t>(i);
    if (isAscii(*from)) {  // one by one to behind what is no word of these, mostly a line's end
      do {
        wrong = i;
        if (!IsXmlChar(static_cast<unsigned char>(text[i]))) return false;
      } while (++i < text.size() && isAscii(text[i]) && text[i - 1] >= ' ');
      continue;
    }
    const auto to = std::find_if(from, text.end(), isAscii);
    const auto good = utf8::find_invalid(from, to);
    const std::string_view run = text.substr(i, static_cast<std::size_t>(good - from));
    wrong = i + std::min({run.find("\xEF\xBF\xBE"), run.find("\xEF\xBF\xBF"), run.size()});
    if (wrong < i + run.size() || good != to) return false;
    i += run.size();
  }
  return true;
}

std::string_view TXmlNode::Name() const { return Node(*this).name(); }

std::string TXmlNode::Path() const {
  std::string path;
  for (pugi::xml_node node = Node(*this); node.parent().type() == pugi::node_element; node = node.parent()) {
    std::string part = node.name();
    const auto known = FContext->Numbered.find(node.parent().internal_object());
    std::size_t number = 0;
    for (auto before = node; before; before = before.previous_sibling()) {
      if (known != FContext->Numbered.end() && before.internal_object() == known->second.first &&
          SameFolded(before.name(), node.name())) {
        number += known->second.second;
        break;
      }
      if (SameFolded(before.name(), node.name())) ++number;
    }
    if (number > 1) FContext->Numbered[node.parent().internal_object()] = {node.internal_object(), number};
    bool several = number > 1;
    for (auto after = node.next_sibling(); after && !several; after = after.next_sibling())
      several = SameFolded(after.name(), node.name());
    if (several) part += Format("[%zu]", number);
    if (!path.empty()) part.append("/").append(path);
    path = std::move(part);
  }
  return path;
}

TXmlNode TXmlNode::Child(std::string_view name) const {
  pugi::xml_node folded;
  for (auto child = Node(*this).first_child(); child; child = child.next_sibling()) {
    if (child.type() != pugi::node_element) continue;
    if (child.name() == name) return {child.internal_object(), FContext};
    if (!folded && SameFolded(child.name(), name)) folded = child;
  }
  return {folded.internal_object(), FContext};
}

TXmlNode TXmlNode::Parent() const {
  const auto parent = Node(*this).parent();
  return parent.type() == pugi::node_element ? TXmlNode(parent.internal_object(), FContext) : TXmlNode();
}

std::vector<TXmlNode> TXmlNode::Children() const {
  std::vector<TXmlNode> children;
  for (const auto& child : Node(*this).children())
    if (child.type() == pugi::node_element) children.emplace_back(child.internal_object(), FContext);
  return children;
}

std::vector<TXmlNode::TAttribute> TXmlNode::Attributes() const {
  std::vector<TAttribute> attributes;
  for (const auto& attribute : Node(*this).attributes()) attributes.push_back({attribute.name(), attribute.value()});
  return attributes;
}

std::string TXmlNode::Text() const {
  std::string text;
  for (const auto& child : Node(*this).children())
    if (IsText(child)) text += child.value();
  return text;
}

bool TXmlNode::HasValue(std::string_view name) const {
  for (const auto& attribute : Node(*this).attributes())
    if (SameFolded(attribute.name(), name)) return true;
  return static_cast<bool>(Child(name));
}

bool TXmlNode::HasElements() const {
  for (const auto& child : Node(*this).children())
    if (child.type() == pugi::node_element) return true;
  return false;
}

std::string TXmlNode::OuterText() const {
  struct TWriter final : pugi::xml_writer {
    void write(const void* data, std::size_t size) override { Text.append(static_cast<const char*>(data), size); }
    std::string Text;
  } writer;
  Node(*this).print(writer, "", pugi::format_raw);
  return std::move(writer.Text);
}

void TXmlNode::RemoveChildren() {
  pugi::xml_node node = Node(*this);
  if (!node.first_child()) return;
  node.remove_children();
  FContext->Changed = true;
}

std::ptrdiff_t TXmlNode::Offset() const { return Node(*this).offset_debug(); }

TXmlDocument::TXmlDocument() : FDocument(std::make_unique<pugi::xml_document>()) {}
TXmlDocument::~TXmlDocument() = default;

std::string TXmlDocument::Place(std::size_t offset) const {
  offset = std::min(offset, FText.size());
  if (!FLines.empty()) {
    const auto next = std::ranges::upper_bound(FLines, offset);
    return Format("%td:%zu", next - FLines.begin(), offset - *(next - 1) + 1);
  }
  const auto before = std::string_view(FText).substr(0, offset);
  const auto start = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
  return Format("%td:%zu", std::ranges::count(before, '\n') + 1, offset - start + 1);
}

// Fills FText, the encoding and the mark.
TResult<> TXmlDocument::Decode(std::string bytes) {
  using namespace std::string_view_literals;
  const std::string_view view = bytes;
  FEncoding = TEncoding::xeUtf8;
  FMark = false;
  if (bytes.empty()) return AtStart(Tr("the file is empty"));
  if (view.starts_with("\xFF\xFE\0\0"sv) || view.starts_with("\0\0\xFE\xFF"sv))
    return AtStart(Tr("the encoding is UTF-32; only UTF-8, and UTF-16 with its mark, are read"));
  if (view.starts_with("\xFF\xFE"sv) || view.starts_with("\xFE\xFF"sv)) {
    FMark = true;
    const bool bigEndian = view.starts_with("\xFE\xFF"sv);
    FEncoding = bigEndian ? TEncoding::xeUtf16Be : TEncoding::xeUtf16Le;
    if (!FromUtf16(view.substr(2), bigEndian, FText)) return AtStart(Tr("the file is no well-formed UTF-16"));
  } else {
    if (view.starts_with(kByteOrderMark)) {
      FMark = true;
      bytes.erase(0, kByteOrderMark.size());
    }
    FText = std::move(bytes);
  }
  std::size_t wrong = 0;
  if (IsXmlText(FText, wrong)) return {};
  if (FText[wrong] == '\0' && wrong < 2)
    return AtStart(
        Tr("the encoding is UTF-16 without its mark, or no XML; only UTF-8, and UTF-16 with its mark, are read"));
  const auto c = static_cast<unsigned char>(FText[wrong]);
  return AtPlace(Place(wrong), c < 0x20 ? Format(Tr("the character U+%04X, which XML does not have"), c)
                                        : Tr("the file is not in UTF-8 (nor in UTF-16 with its mark)"));
}

TResult<> TXmlDocument::CheckReferences() const {
  const std::string_view text = FText;
  std::size_t at = 0;
  std::size_t next = text.find("&#");  // the first one that stands at `at` or behind it
  const auto behind = [&](std::string_view mark, std::size_t from) {
    const std::size_t found = text.find(mark, from);
    return found == std::string_view::npos ? text.size() : found + mark.size();
  };
  // Goes on to `end`; false at a wrong reference in what holds references.
  const auto pass = [&](std::size_t end, bool holds) {
    at = std::min(end, text.size());
    for (; next < at; next = text.find("&#", next + 2))
      if (holds && IsWrongReference(text.substr(next))) return false;
    return true;
  };
  while (next != std::string_view::npos) {
    const std::string_view rest = text.substr(at);
    const bool fine = !rest.starts_with('<')          ? pass(text.find('<', at), true)
                      : rest.starts_with("<!--")      ? pass(behind("-->", at + 4), false)
                      : rest.starts_with("<![CDATA[") ? pass(behind("]]>", at), false)
                      : rest.starts_with("<?")        ? pass(behind("?>", at), false)
                                                      : pass(TagEnd(text, at), true);
    if (!fine)
      return AtPlace(Place(next), Format(Tr("\"%s\" names a character that XML does not have"),
                                         std::string(text.substr(next, text.find(';', next) + 1 - next)).c_str()));
  }
  return {};
}

std::vector<std::size_t> TXmlDocument::AttributeOffsets(const TXmlNode& node) const {
  std::vector<std::size_t> offsets;
  for (const auto& attribute : StartTagAt(FText, node.Offset()).Attributes)
    offsets.push_back(static_cast<std::size_t>(attribute.Name.data() - FText.data()));
  return offsets;
}

TResult<> TXmlDocument::CheckTree() const {
  const auto at = [&](const pugi::xml_node& node, std::string what) {
    return AtPlace(Place(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0))), std::move(what));
  };
  const pugi::xml_node root = FDocument->document_element();
  for (const auto& node : FDocument->children()) {
    if (node.type() == pugi::node_element && node != root) return at(node, Tr("a second document element"));
    if (IsText(node) && !TrimXml(node.value()).empty()) return at(node, Tr("text outside the document element"));
    if (node.type() == pugi::node_doctype && std::strstr(node.value(), "<!ENTITY"))
      return at(node, Tr("the document type declares entities, which are not supported"));
    if (node.type() == pugi::node_declaration) {
      const std::string_view encoding = node.attribute("encoding").value();
      const bool wide = FEncoding != TEncoding::xeUtf8;
      if (!encoding.empty() && !SameFolded(encoding, wide ? "UTF-16" : "UTF-8") &&
          !(wide ? SameFolded(encoding, FEncoding == TEncoding::xeUtf16Le ? "UTF-16LE" : "UTF-16BE")
                 : SameFolded(encoding, "US-ASCII")))
        return at(
            node,
            Format(Tr("the file says that its encoding is \"%s\"; only UTF-8, and UTF-16 with its mark, are read"),
                   encoding.data()));
    }
  }
  int depth = 0;
  for (pugi::xml_node node = root; node;) {  // in document order, without recursion
    if (const auto repeated = RepeatedAttribute(node)) {
      TXmlContext context;
      const TXmlNode element(node.internal_object(), &context);
      const auto offsets = AttributeOffsets(element);
      return AtPlace(
          Place(*repeated < offsets.size() ? offsets[*repeated] : 0),
          Format(Tr("the attribute \"%s\" stands twice in one element"), element.Attributes()[*repeated].Name.data()));
    }
    if (pugi::xml_node child = node.first_child()) {
      node = child;
      if (++depth > kMaxDepth) return at(node, Format(Tr("elements are nested deeper than %d"), kMaxDepth));
      continue;
    }
    while (node && node != root && !node.next_sibling()) node = node.parent(), --depth;
    if (!node || node == root) break;
    node = node.next_sibling();
  }
  return {};
}

TResult<> TXmlDocument::Parse(std::string bytes, TXmlDetail detail) {
  const auto parse = [&]() -> TResult<> {
    if (bytes.size() > kMaxBytes) return AtStart(Tr("the file is larger than 64 MiB"));
    if (auto decoded = Decode(std::move(bytes)); !decoded) return decoded;
    if (auto checked = CheckReferences(); !checked) return checked;
    if (detail == xdPlaces) {
      FLines.push_back(0);
      for (auto at = FText.find('\n'); at != std::string::npos; at = FText.find('\n', at + 1)) FLines.push_back(at + 1);
    }
    const auto result =
        detail == xdValues
            ? FDocument->load_buffer_inplace(FText.data(), FText.size(), kParseValues, pugi::encoding_utf8)
            : FDocument->load_buffer(FText.data(), FText.size(), detail == xdAll ? kParse : kParseValues,
                                     pugi::encoding_utf8);
    if (!result)
      return AtPlace(Place(static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0))),
                     Syntax(result.status));
    return FDocument->document_element() ? CheckTree() : AtStart(Tr("there is no document element"));
  };
  FDocument->reset();  // before the text that it may stand in
  FLines.clear();
  TResult<> parsed = parse();
  if (!parsed) FDocument->reset();
  return parsed;
}

void TXmlDocument::MakeNew(std::string_view rootName) {
  FDocument->reset();
  FText.clear();
  FEncoding = TEncoding::xeUtf8;
  FMark = false;
  auto declaration = FDocument->append_child(pugi::node_declaration);
  declaration.append_attribute("version").set_value("1.0");
  declaration.append_attribute("encoding").set_value("utf-8");
  FDocument->append_child(pugi::node_pcdata).set_value("\n");
  FDocument->append_child(std::string(rootName).c_str());
  FDocument->append_child(pugi::node_pcdata).set_value("\n");
}

std::string TXmlDocument::Serialise() const {
  std::string text = WriteXml(*FDocument, FText);
  if (FMark) text.insert(0, kByteOrderMark);
  return FEncoding == TEncoding::xeUtf8 ? text : ToUtf16(text, FEncoding == TEncoding::xeUtf16Be);
}

pugi::xml_node_struct* TXmlDocument::RootHandle() const { return FDocument->document_element().internal_object(); }
TXmlNode TXmlDocument::Root(TXmlContext& context) const { return {RootHandle(), &context}; }

}  // namespace ixocamglue
