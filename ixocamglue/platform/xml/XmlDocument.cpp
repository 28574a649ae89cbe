#include "ixocamglue/platform/xml/XmlDocument.h"

#include <algorithm>
#include <cstring>

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

bool IsText(const pugi::xml_node& node) { return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata; }

// False where a unit is half of a character.
bool FromUtf16(std::string_view bytes, bool bigEndian, std::string& out) {
  if (bytes.size() % 2 != 0) return false;
  const auto unit = [&](std::size_t i) {
    const auto a = static_cast<unsigned char>(bytes[i]), b = static_cast<unsigned char>(bytes[i + 1]);
    return static_cast<std::uint32_t>(bigEndian ? a << 8 | b : b << 8 | a);
  };
  out.clear();
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    std::uint32_t c = unit(i);
    if (c >= 0xD800 && c < 0xE000) {
      if (c >= 0xDC00 || i + 2 >= bytes.size()) return false;
      const std::uint32_t low = unit(i += 2);
      if (low < 0xDC00 || low >= 0xE000) return false;
      c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
    }
    AppendUtf8(out, c);
  }
  return true;
}

// Of well-formed UTF-8.
std::string ToUtf16(std::string_view text, bool bigEndian) {
  std::string out;
  out.reserve(text.size() * 2);
  const auto put = [&](std::uint32_t unit) {
    const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8 & 0xFF);
    out += bigEndian ? high : low;
    out += bigEndian ? low : high;
  };
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = [&](std::size_t at) { return std::uint32_t{static_cast<unsigned char>(text[at])}; };
    const std::uint32_t lead = byte(i);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t c = length == 1 ? lead : lead & (0xFFu >> (length + 1));
    for (std::size_t k = 1; k < length; ++k) c = c << 6 | (byte(i + k) & 0x3F);
    i += length;
    if (c < 0x10000)
      put(c);
    else
      put(0xD800 + ((c - 0x10000) >> 10)), put(0xDC00 + ((c - 0x10000) & 0x3FF));
  }
  return out;
}

// The length of the UTF-8 sequence at `s`, 0 when it is none.
std::size_t SequenceLength(const unsigned char* s, std::size_t left) {
  const auto follows = [&](std::size_t n, unsigned lowest, unsigned highest) -> std::size_t {
    if (left <= n || s[1] < lowest || s[1] > highest) return 0;
    for (std::size_t i = 2; i <= n; ++i)
      if ((s[i] & 0xC0) != 0x80) return 0;
    return n + 1;
  };
  const unsigned c = s[0];
  if (c < 0x80) return c != 0 ? 1 : 0;
  if (c >= 0xC2 && c < 0xE0) return follows(1, 0x80, 0xBF);
  if (c == 0xE0) return follows(2, 0xA0, 0xBF);
  if (c == 0xED) return follows(2, 0x80, 0x9F);
  if (c > 0xE0 && c < 0xF0) return follows(2, 0x80, 0xBF);
  if (c == 0xF0) return follows(3, 0x90, 0xBF);
  if (c > 0xF0 && c < 0xF4) return follows(3, 0x80, 0xBF);
  if (c == 0xF4) return follows(3, 0x80, 0x8F);
  return 0;
}

}  // namespace

bool IsXmlText(std::string_view text, std::size_t& wrong) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t i = 0;
  while (i < text.size()) {
    if (i + 8 <= text.size()) {  // eight ASCII characters at once, none of them zero
      std::uint64_t word = 0;
      std::memcpy(&word, bytes + i, 8);
      if (((word | (word - 0x0101010101010101u)) & 0x8080808080808080u) == 0) {
        i += 8;
        continue;
      }
    }
    const std::size_t length = SequenceLength(bytes + i, text.size() - i);
    if (length == 0) {
      wrong = i;
      return false;
    }
    i += length;
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
std::string TXmlDocument::Decode(std::string bytes) {
  using namespace std::string_view_literals;
  const std::string_view view = bytes;
  FEncoding = TEncoding::xeUtf8;
  FMark = false;
  if (bytes.empty()) return "1:1: the file is empty";
  if (view.starts_with("\xFF\xFE\0\0"sv) || view.starts_with("\0\0\xFE\xFF"sv))
    return "1:1: the encoding is UTF-32; only UTF-8, and UTF-16 with its mark, are read";
  if (view.starts_with("\xFF\xFE"sv) || view.starts_with("\xFE\xFF"sv)) {
    FMark = true;
    const bool bigEndian = view.starts_with("\xFE\xFF"sv);
    FEncoding = bigEndian ? TEncoding::xeUtf16Be : TEncoding::xeUtf16Le;
    if (!FromUtf16(view.substr(2), bigEndian, FText)) return "1:1: the file is no well-formed UTF-16";
  } else {
    if (view.starts_with("\xEF\xBB\xBF"sv)) {
      FMark = true;
      bytes.erase(0, 3);
    }
    FText = std::move(bytes);
  }
  std::size_t wrong = 0;
  if (IsXmlText(FText, wrong)) return {};
  if (FText[wrong] == '\0' && wrong < 2)
    return "1:1: the encoding is UTF-16 without its mark, or no XML; only UTF-8, and UTF-16 with its mark, are read";
  return Place(wrong) +
         (FText[wrong] == '\0' ? ": a zero character" : ": the file is not in UTF-8 (nor in UTF-16 with its mark)");
}

std::string TXmlDocument::CheckTree() const {
  const auto at = [&](const pugi::xml_node& node) {
    return Place(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0)));
  };
  const pugi::xml_node root = FDocument->document_element();
  for (const auto& node : FDocument->children()) {
    if (node.type() == pugi::node_element && node != root) return at(node) + ": a second document element";
    if (IsText(node) && !TrimXml(node.value()).empty()) return at(node) + ": text outside the document element";
    if (node.type() == pugi::node_doctype && std::strstr(node.value(), "<!ENTITY"))
      return at(node) + ": the document type declares entities, which are not supported";
    if (node.type() == pugi::node_declaration) {
      const std::string_view encoding = node.attribute("encoding").value();
      const bool wide = FEncoding != TEncoding::xeUtf8;
      if (!encoding.empty() && !SameFolded(encoding, wide ? "UTF-16" : "UTF-8") &&
          !(wide ? SameFolded(encoding, FEncoding == TEncoding::xeUtf16Le ? "UTF-16LE" : "UTF-16BE")
                 : SameFolded(encoding, "US-ASCII")))
        return at(node) +
               Format(": the file says that its encoding is \"%s\"; only UTF-8, and UTF-16 with its mark, are read",
                      encoding.data());
    }
  }
  int depth = 0;
  for (pugi::xml_node node = root; node;) {  // in document order, without recursion
    if (pugi::xml_node child = node.first_child()) {
      node = child;
      if (++depth > kMaxDepth) return at(node) + Format(": elements are nested deeper than %d", kMaxDepth);
      continue;
    }
    while (node && node != root && !node.next_sibling()) node = node.parent(), --depth;
    if (!node || node == root) break;
    node = node.next_sibling();
  }
  return {};
}

std::string TXmlDocument::Parse(std::string bytes, TXmlDetail detail) {
  std::string problem;
  if (bytes.size() > kMaxBytes)
    problem = "1:1: the file is larger than 64 MiB";
  else
    problem = Decode(std::move(bytes));
  if (problem.empty()) {
    const auto result = FDocument->load_buffer(FText.data(), FText.size(), detail == xdAll ? kParse : kParseValues,
                                               pugi::encoding_utf8);
    if (!result)
      problem =
          Place(static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0))) + ": " + result.description();
    else if (!FDocument->document_element())
      problem = "1:1: there is no document element";
    else
      problem = CheckTree();
  }
  if (!problem.empty()) FDocument->reset();
  return problem;
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
  if (FMark) text.insert(0, "\xEF\xBB\xBF");
  return FEncoding == TEncoding::xeUtf8 ? text : ToUtf16(text, FEncoding == TEncoding::xeUtf16Be);
}

pugi::xml_node_struct* TXmlDocument::RootHandle() const { return FDocument->document_element().internal_object(); }
TXmlNode TXmlDocument::Root(TXmlContext& context) const { return {RootHandle(), &context}; }

}  // namespace ixocamglue
