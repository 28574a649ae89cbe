// One XML file in memory, with everything that stands in it: comments, processing instructions, white space and
// whatever the library does not know. One thread at a time; reading only, any number of threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ixocamglue/support/Problem.h"

namespace pugi {  // the XML library's nodes; our sources see its header, users of ours need not
class xml_document;
struct xml_node_struct;
}  // namespace pugi

namespace ixocamglue {

// Where an element belongs, and what a save found out while it wrote into it.
struct TXmlContext {
  std::string File;
  bool Changed = false;
  std::string Problem;  // a value that no XML file can hold; the save must not go on
  bool Quiet = false;   // a load does not log the texts that are no value of their property
  // By parent, the child that was numbered last, so that items are numbered in one way through their list.
  std::map<const pugi::xml_node_struct*, std::pair<pugi::xml_node_struct*, std::size_t>> Numbered{};
};

// An element, or none. Valid as long as its document and its context. Nothing of it fails: what is not there is none,
// or empty.
class TXmlNode {
 public:
  TXmlNode() = default;
  TXmlNode(pugi::xml_node_struct* node, TXmlContext* context) : FNode(node), FContext(context) {}

  explicit operator bool() const { return FNode != nullptr; }
  [[nodiscard]] pugi::xml_node_struct* Handle() const { return FNode; }
  [[nodiscard]] TXmlContext& Context() const { return *FContext; }

  [[nodiscard]] std::string_view Name() const;
  // From below the document element: "Gas/Branch[2]"; numbered where its parent has several of the name.
  [[nodiscard]] std::string Path() const;
  // The child element of this name: the exact spelling, else the first without regard to case.
  [[nodiscard]] TXmlNode Child(std::string_view name) const;
  [[nodiscard]] TXmlNode Parent() const;                 // none at the document element
  [[nodiscard]] std::vector<TXmlNode> Children() const;  // elements, in document order
  struct TAttribute {
    std::string_view Name, Value;
  };
  [[nodiscard]] std::vector<TAttribute> Attributes() const;
  [[nodiscard]] std::string Text() const;                    // its own character data, untrimmed
  [[nodiscard]] bool HasValue(std::string_view name) const;  // an attribute, or a child element, of this name
  [[nodiscard]] bool HasElements() const;                    // then it is no value
  // As it would be written, with all that is in it.
  [[nodiscard]] std::string OuterText() const;
  void RemoveChildren();                        // everything inside, texts and comments included; for a save
  [[nodiscard]] std::ptrdiff_t Offset() const;  // of its name in TXmlDocument::Text(); -1 when it is not from there

 private:
  pugi::xml_node_struct* FNode = nullptr;
  TXmlContext* FContext = nullptr;
};

// How much of a file is taken in.
enum class TXmlDetail : std::uint8_t {
  xdAll,     // for a save
  xdPlaces,  // to read: without comments and the white space between elements
  xdValues,  // the same without a Text(), in half the memory
};
using enum TXmlDetail;

// Nothing of it fails but Parse.
class TXmlDocument {
 public:
  static constexpr std::uint64_t kMaxBytes = 64ull * 1024 * 1024;
  static constexpr int kMaxDepth = 64;

  TXmlDocument();
  ~TXmlDocument();
  TXmlDocument(const TXmlDocument&) = delete;
  TXmlDocument& operator=(const TXmlDocument&) = delete;

  // Takes the content of a file: UTF-8, or UTF-16 with its mark. Refused is what is no XML 1.0 and would not survive a
  // save, such as a character that XML does not have, or an attribute that stands twice in one element. A problem has
  // its "line:column" in Where (with xdValues only about); then the document is empty.
  TResult<> Parse(std::string bytes, TXmlDetail detail = xdAll);
  // Only a document element of this name.
  void MakeNew(std::string_view rootName);
  // In the encoding, and with the mark, that it came in.
  [[nodiscard]] std::string Serialise() const;

  [[nodiscard]] TXmlNode Root(TXmlContext& context) const;
  [[nodiscard]] pugi::xml_node_struct* RootHandle() const;
  // As it came, as UTF-8 without a mark. With xdValues it has been parsed in place and is of no use.
  [[nodiscard]] const std::string& Text() const { return FText; }
  // Of the names of the element's attributes in Text(), in the order of TXmlNode::Attributes.
  [[nodiscard]] std::vector<std::size_t> AttributeOffsets(const TXmlNode& node) const;
  // "line:column" of a place in Text().
  [[nodiscard]] std::string Place(std::size_t offset) const;

 private:
  enum class TEncoding : std::uint8_t { xeUtf8, xeUtf16Le, xeUtf16Be };

  TResult<> Decode(std::string bytes);
  TResult<> CheckReferences() const;
  TResult<> CheckTree() const;

  std::string FText;
  std::vector<std::size_t> FLines;  // where each starts in FText; with xdPlaces
  TEncoding FEncoding = TEncoding::xeUtf8;
  bool FMark = false;
  std::unique_ptr<pugi::xml_document> FDocument;
};

// Well-formed UTF-8 with nothing but characters that XML has: of those below U+0020 only tab, line feed and carriage
// return. Else the offset of the first wrong byte is in `wrong`.
[[nodiscard]] bool IsXmlText(std::string_view text, std::size_t& wrong);

}  // namespace ixocamglue
