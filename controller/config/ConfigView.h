// What `ixocut config` knows of a machine configuration: every property with its path, type, default and value, taken
// from the records' own lists, and the faults of a file against them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

// One property. Items of lists have a 1-based number: "MarkPoints/MarkPoint[2]/Enabled".
struct TPropertyView {
  std::string Path;
  std::string Type;  // Boolean, Integer, Cardinal, Double, Extended, string
  std::string Default;
  std::string Value;
  std::string Range;    // what the record can hold, "1..1000"; empty: any
  bool IsItem = false;  // belongs to an item of a list
  TFieldFacts Facts;    // what else its line says
};

// In the order of the sections and of their properties. With `schema` each list shows one item, numbered "[]", and
// texts by number show one, "<n>".
[[nodiscard]] std::vector<TPropertyView> ViewProperties(TXmlSubConfig& root, bool schema);

// Sets one property by its path as ViewProperties names it, without regard to case; a number only within its bound on
// this machine, null for none. Nothing is changed by what is refused.
TResult<> SetProperty(TXmlSubConfig& root, std::string_view path, const std::string& value,
                      const TMachineBounds* machine = nullptr);

struct TConfigFinding {
  std::size_t Offset = 0;
  std::string Place;  // "line:column"
  std::string Path;
  std::string Text;
  bool Foreign = false;  // a name that is not ours and resembles none of ours: legal
};

// Everything in the document that the records would not read as it was meant, in document order.
[[nodiscard]] std::vector<TConfigFinding> CheckDocument(const TXmlDocument& document, TXmlSubConfig& root);

// Adds problems whose Where is a path in their places, but not where there is a finding already.
void AddFindings(const TXmlDocument& document, const std::vector<TProblem>& problems,
                 std::vector<TConfigFinding>& findings);

}  // namespace ixocontroller
