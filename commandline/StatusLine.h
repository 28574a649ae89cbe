// What a terminal shows while something goes on.
#pragma once

#include <iosfwd>
#include <string_view>

namespace ixocommandline {

// A line that the next one replaces on a terminal, else a line of its own. One thread at a time.
class TStatusLine {
 public:
  TStatusLine(std::ostream& out, bool terminal) : FOut(out), FTerminal(terminal) {}

  // A person watches.
  [[nodiscard]] bool OnTerminal() const { return FTerminal; }
  // The cursor stands behind a line.
  [[nodiscard]] bool Drawn() const { return FDrawn; }
  void Draw(std::string_view text);
  // Makes room for other lines.
  void Clear();

 private:
  std::ostream& FOut;
  const bool FTerminal;
  bool FDrawn = false;
};

// Where `out` is the standard output, whether that is a terminal.
[[nodiscard]] bool IsTerminal(const std::ostream& out);

}  // namespace ixocommandline
