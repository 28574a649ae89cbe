#include "ixocamglue/platform/xml/XmlDocument.h"

#include <algorithm>
#include <cstring>
#include <utf8.h>

#include <pugixml.hpp>

#include "ixocamglue/platform/xml/XmlWriter.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

// Everything is kept. Line ends stay as they are in the file.
constexpr unsigned kParse = (pugi::parse_full | pugi::parse_ws_pcdata | pugi::parse_fragment) & ~pugi::parse_eol;
constexpr unsigned kParseValues =
    (kParse | pugi::parse_ws_pcdata_single) & ~(pugi::parse_comments | pugi::parse_pi | pugi::parse_ws_pcdata);

pugi::xml_node Node(const TXmlNode& node) { return pugi::xml_node(node.Handle()); }

TProblem At(std::string place, std::string what) { return {.What = std::move(what), .Where = std::move(place)}; }
TProblem AtStart(std::string what) { return At("1:1", std::move(what)); }

bool IsText(const pugi::xml_node& node) { return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata; }

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
    if (i + 8 <= text.size()) {  // eight ASCII characters at once, none of them zero
      std::uint64_t word = 0;
      std::memcpy(&word, text.data() + i, 8);
      if (((word | (word - 0x0101010101010101u)) & 0x8080808080808080u) == 0) {
        i += 8;
        continue;
      }
    }
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const auto from = text.begin() + static_cast<std::ptrdiff_t>(i);
    const auto to = isAscii(*from) ? from + 1 : std::find_if(from, text.end(), isAscii);
    const auto good = *from == '\0' ? from : utf8::find_invalid(from, to);
    i = static_cast<std::size_t>(good - text.begin());
    if (good == to) continue;
    wrong = i;
    return false;
  }
  return true;
}

std::string_view TXmlNode::Name() const { return Node(*this).name(); }

std::string TXmlNode::Path() const {
  std::string path;
  for (pugi::xml_node node = Node(*this); node.parent().type() == pugi::node_element; node = node.parent()) {
    std::string part = node.name();
    std::size_t number = 1;
    for (auto before = node.previous_sibling(); before; before = before.previous_sibling())
      if (SameFolded(before.name(), node.name())) ++number;
    bool several = number > 1;
    for (auto after = node.next_sibling(); after && !several; after = after.next_sibling())
      several = SameFolded(after.name(), node.name());
    if (several) part += Format("[%zu]", number);
    path = path.empty() ? part : part + "/" + path;
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
  const auto before = std::string_view(FText).substr(0, std::min(offset, FText.size()));
  const auto line = std::ranges::count(before, '\n') + 1;
  const auto start = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
  return Format("%td:%zu", line, before.size() - start + 1);
}

// Fills FText, the encoding and the mark.
TResult<> TXmlDocument::Decode(std::string bytes) {
  using namespace std::string_view_literals;
  const std::string_view view = bytes;
  FEncoding = TEncoding::xeUtf8;
  FMark = false;
  if (bytes.empty()) return AtStart("the file is empty");
  if (view.starts_with("\xFF\xFE\0\0"sv) || view.starts_with("\0\0\xFE\xFF"sv))
    return AtStart("the encoding is UTF-32; only UTF-8, and UTF-16 with its mark, are read");
  if (view.starts_with("\xFF\xFE"sv) || view.starts_with("\xFE\xFF"sv)) {
    FMark = true;
    const bool bigEndian = view.starts_with("\xFE\xFF"sv);
    FEncoding = bigEndian ? TEncoding::xeUtf16Be : TEncoding::xeUtf16Le;
    if (!FromUtf16(view.substr(2), bigEndian, FText)) return AtStart("the file is no well-formed UTF-16");
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
        "the encoding is UTF-16 without its mark, or no XML; only UTF-8, and UTF-16 with its mark, are read");
  return At(Place(wrong),
            FText[wrong] == '\0' ? "a zero character" : "the file is not in UTF-8 (nor in UTF-16 with its mark)");
}

TResult<> TXmlDocument::CheckTree() const {
  const auto at = [&](const pugi::xml_node& node, std::string what) {
    return At(Place(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0))), std::move(what));
  };
  const pugi::xml_node root = FDocument->document_element();
  for (const auto& node : FDocument->children()) {
    if (node.type() == pugi::node_element && node != root) return at(node, "a second document element");
    if (IsText(node) && !TrimXml(node.value()).empty()) return at(node, "text outside the document element");
    if (node.type() == pugi::node_doctype && std::strstr(node.value(), "<!ENTITY"))
      return at(node, "the document type declares entities, which are not supported");
    if (node.type() == pugi::node_declaration) {
      const std::string_view encoding = node.attribute("encoding").value();
      const bool wide = FEncoding != TEncoding::xeUtf8;
      if (!encoding.empty() && !SameFolded(encoding, wide ? "UTF-16" : "UTF-8") &&
          !(wide ? SameFolded(encoding, FEncoding == TEncoding::xeUtf16Le ? "UTF-16LE" : "UTF-16BE")
                 : SameFolded(encoding, "US-ASCII")))
        return at(node,
                  Format("the file says that its encoding is \"%s\"; only UTF-8, and UTF-16 with its mark, are read",
                         encoding.data()));
    }
  }
  int depth = 0;
  for (pugi::xml_node node = root; node;) {  // in document order, without recursion
    if (pugi::xml_node child = node.first_child()) {
      node = child;
      if (++depth > kMaxDepth) return at(node, Format("elements are nested deeper than %d", kMaxDepth));
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
    if (bytes.size() > kMaxBytes) return AtStart("the file is larger than 64 MiB");
    if (auto decoded = Decode(std::move(bytes)); !decoded) return decoded;
    const auto result = FDocument->load_buffer(FText.data(), FText.size(), detail == xdAll ? kParse : kParseValues,
                                               pugi::encoding_utf8);
    if (!result)
      return At(Place(static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0))), result.description());
    return FDocument->document_element() ? CheckTree() : AtStart("there is no document element");
  };
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
