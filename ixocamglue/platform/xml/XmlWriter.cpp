#include "ixocamglue/platform/xml/XmlWriter.h"

#include <charconv>
#include <iterator>
#include <optional>
#include <utf8.h>
#include <vector>

#include <pugixml.hpp>

#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// The character that an entity at the front of `text` stands for, and its length; none: no entity that the parser
// knows, so it stands for itself.
struct TEntity {
  char32_t Char = 0;
  std::size_t Length = 0;
};
std::optional<TEntity> EntityAt(std::string_view text) {
  constexpr struct {
    std::string_view Text;
    char32_t Char;
  } kNamed[] = {{"&amp;", U'&'}, {"&lt;", U'<'}, {"&gt;", U'>'}, {"&quot;", U'"'}, {"&apos;", U'\''}};
  for (const auto& named : kNamed)
    if (text.starts_with(named.Text)) return TEntity{named.Char, named.Text.size()};
  if (!text.starts_with("&#")) return std::nullopt;
  const bool hex = text.substr(2).starts_with('x');
  const char* const first = text.data() + (hex ? 3 : 2);
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(first, text.data() + text.size(), number, hex ? 16 : 10);
  if (error != std::errc{} || end == text.data() + text.size() || *end != ';') return std::nullopt;
  return TEntity{number, static_cast<std::size_t>(end - text.data()) + 1};
}

// Whether the parser makes `value` of this text; of an attribute it turns each kind of white space into blanks.
bool Says(std::string_view raw, std::string_view value, bool attribute) {
  if (raw.find_first_of(attribute ? "&\t\r\n" : "&") == std::string_view::npos) return raw == value;
  std::string read;
  for (std::size_t i = 0; i < raw.size();) {
    if (const auto entity = raw[i] == '&' ? EntityAt(raw.substr(i)) : std::nullopt) {
      utf8::unchecked::append(entity->Char, std::back_inserter(read));
      i += entity->Length;
    } else if (attribute && kBlanks.find(raw[i]) != std::string_view::npos) {
      i += raw.substr(i).starts_with("\r\n") ? 2U : 1U;
      read += ' ';
    } else {
      read += raw[i++];
    }
  }
  return read == value;
}

class TWriter {
 public:
  explicit TWriter(std::string_view original) : FOriginal(original) {
    FOut.reserve(original.size() + original.size() / 8 + 4096);
  }

  void Children(const pugi::xml_node& parent) {
    for (const auto& child : parent.children()) Node(child);
  }
  std::string FOut;

 private:
  void Node(const pugi::xml_node& node) {
    switch (node.type()) {
      case pugi::node_element: return Element(node);
      case pugi::node_pcdata: return Text(node);
      case pugi::node_cdata: return CData(node.value());
      case pugi::node_comment: return Put("<!--", node.value(), "-->");
      case pugi::node_doctype: return Put("<!DOCTYPE ", node.value(), ">");
      case pugi::node_declaration:
        FOut += "<?";
        StartTag(node);
        FOut += "?>";
        return;
      case pugi::node_pi:
        FOut += "<?";
        FOut += node.name();
        if (*node.value()) Put(" ", node.value(), "");
        FOut += "?>";
        return;
      case pugi::node_null:
      case pugi::node_document: return;
    }
  }

  void Put(std::string_view before, std::string_view text, std::string_view after) {
    FOut += before;
    FOut += text;
    FOut += after;
  }

  // Attributes stand mostly in the order of the file: `next` is looked at first, and moved behind what was found.
  static const TStartTag::TAttribute* Find(const TStartTag& tag, std::string_view name, std::size_t& next) {
    const auto& all = tag.Attributes;
    const TStartTag::TAttribute* found = next < all.size() && all[next].Name == name ? &all[next] : nullptr;
    for (std::size_t i = 0; i < all.size() && (!found || found->Name != name); ++i)
      if (all[i].Name == name || (!found && SameFolded(all[i].Name, name))) found = &all[i];
    if (found) next = static_cast<std::size_t>(found - all.data()) + 1;
    return found;
  }

  // From the name of the element or declaration up to its closing mark; whether it was closed at once.
  bool StartTag(const pugi::xml_node& node) {
    const TStartTag tag = StartTagAt(FOriginal, node.offset_debug());
    FOut += node.name();
    std::size_t next = 0;
    for (const auto& attribute : node.attributes()) {
      const TStartTag::TAttribute* const there = Find(tag, attribute.name(), next);
      const TStartTag::TAttribute written = there ? *there : TStartTag::TAttribute{" ", {}, "=\"", {}, "\""};
      FOut += written.Before;
      FOut += attribute.name();
      FOut += written.Opening;
      if (there && Says(written.Value, attribute.value(), true))
        FOut += written.Value;
      else
        Escape(attribute.value(), true);
      FOut += written.Quote;
    }
    FOut += tag.End;
    return tag.ClosesAtOnce;
  }

  void Element(const pugi::xml_node& node) {
    FOut += '<';
    const bool closesAtOnce = StartTag(node);
    if (!node.first_child() && closesAtOnce) {
      FOut += "/>";
      return;
    }
    FOut += '>';
    Children(node);
    Put("</", node.name(), ">");
  }

  void Text(const pugi::xml_node& node) {
    const std::ptrdiff_t offset = node.offset_debug();
    if (offset >= 0 && !FOriginal.empty()) {
      const std::string_view rest = FOriginal.substr(static_cast<std::size_t>(offset));
      const std::string_view raw = rest.substr(0, rest.find('<'));
      if (Says(raw, node.value(), false)) {
        FOut += raw;
        return;
      }
    }
    Escape(node.value(), false);
  }

  void CData(std::string_view text) {
    FOut += "<![CDATA[";
    for (std::size_t end = text.find("]]>"); end != std::string_view::npos; end = text.find("]]>")) {
      Put("", text.substr(0, end + 2), "]]><![CDATA[");
      text.remove_prefix(end + 2);
    }
    Put("", text, "]]>");
  }

  void Escape(std::string_view text, bool attribute) {
    for (const char c : text) {
      const auto code = static_cast<unsigned char>(c);
      if (c == '&')
        FOut += "&amp;";
      else if (c == '<')
        FOut += "&lt;";
      else if (c == '>')
        FOut += "&gt;";
      else if (attribute && c == '"')
        FOut += "&quot;";
      else if (attribute && c == '\'')
        FOut += "&apos;";  // the quotation mark around it may be either
      else if (code < 32 && (attribute || (c != '\t' && c != '\n')))
        Put("&#", ValueText(std::int32_t{code}), ";");
      else
        FOut += c;
    }
  }

  const std::string_view FOriginal;
};

}  // namespace

TStartTag StartTagAt(std::string_view text, std::ptrdiff_t offset) {
  TStartTag tag;
  if (offset < 0 || text.empty()) return tag;
  std::size_t at = text.find_first_of(" \t\r\n/>?", static_cast<std::size_t>(offset));
  while (at != std::string_view::npos) {
    const std::size_t name = text.find_first_not_of(kBlanks, at);
    if (name == std::string_view::npos) break;
    if (const char c = text[name]; c == '>' || c == '/' || c == '?') {
      tag.End = text.substr(at, name - at);
      tag.ClosesAtOnce = c != '>';
      break;
    }
    const std::size_t open = text.find_first_of("\"'", name);
    const std::size_t close = open == std::string_view::npos ? open : text.find(text[open], open + 1);
    if (close == std::string_view::npos) break;
    const std::size_t behind = text.find_first_of(" \t\r\n=", name);
    tag.Attributes.push_back({text.substr(at, name - at), text.substr(name, behind - name),
                              text.substr(behind, open + 1 - behind), text.substr(open + 1, close - open - 1),
                              text.substr(close, 1)});
    at = close + 1;
  }
  return tag;
}

std::string WriteXml(const pugi::xml_document& document, std::string_view original) {
  TWriter writer(original);
  writer.Children(document);
  return std::move(writer.FOut);
}

}  // namespace ixocamglue
