// The line protocol between a controller's driver and `ixocut-hal`, the program that is a component of LinuxCNC's HAL:
// what each line says, made and read for both sides. Values; any thread; touches no socket.
//
// A Unix socket (SOCK_STREAM, mode 0600), lines of ASCII that end with '\n'. One client at a time commands, others
// only watch. Pins are named as in the list that ixocut-hal was started with; in HAL it is "ixocut-hal." + name. An
// output is the controller's: ixocut-hal writes the pin. Values are in the units of what the pin is wired to; the
// example wires LinuxCNC's own, which are mm, mm/s and degrees there. A bit is 0 or 1.
//
//   client                     ixocut-hal
//   hello VERSION ROLE                               first line, at once; ROLE: command or watch
//                              hello VERSION PINS ROLE   the role that it got: "watch" although it asked for "command"
//                              pin KIND DIR NAME     so many; KIND: bit, float or s32; DIR: in or out
//                              full SEQ MS DONE NAME=VALUE ...    every pin, at first and once a second
//                              state SEQ MS DONE NAME=VALUE ...   those that have changed; every 10 ms, also with none
//   set N NAME VALUE                                 an output
//   beat N                                           toggles the pin "heartbeat"; every 20 ms. Nothing else toggles it
//   alive N                                          no effect but a sign of life, while beats are withheld
//   rearm N                                          the pin "rearm" rises, and falls 20 ms later
//                              bye CODE              the last line, then the connection ends
//
// N: a number of the client's that rises with each line, over all kinds. SEQ rises by 1 per frame of this connection.
// MS: ixocut-hal's own clock, since its start. DONE: the N that was carried out last, 0 at first; the values of the
// frame were read after it. So a `set N` has been read back when a frame has DONE >= N and shows the value.
//
// On silence. ixocut-hal writes FALSE or 0 to every output, and ends the connection, when the commanding client has
// closed it, has sent no line for 300 ms, or has sent one that is wrong; when ixocut-hal itself was held up for 100 ms,
// as what waited in the socket meanwhile is as old as that; and when the pin "servo-seconds" has stood still for 100
// ms, which the realtime process counts up in every period: nobody commands a machine whose latch cannot fall. It
// writes them before it ends, too. A client takes 200 ms without a frame for the loss of the device. The latch in HAL
// falls by itself after 100 ms without a beat. Nobody's outputs come back when a connection does: they are set again,
// and the latch rearmed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

inline constexpr std::uint64_t kHalVersion = 1;
inline constexpr std::uint32_t kHalBeatMs = 20;
inline constexpr std::uint32_t kHalLatchMs = 100;  // `oneshot` in the example's circuit
inline constexpr std::uint32_t kHalFrameMs = 10;
inline constexpr std::uint32_t kHalFullMs = 1000;
inline constexpr std::uint32_t kHalRearmMs = 20;
inline constexpr std::uint32_t kHalStallMs = 100;   // ixocut-hal was held up, or the realtime process is
inline constexpr std::uint32_t kHalClientMs = 300;  // the commanding client was silent
inline constexpr std::uint32_t kHalDeviceMs = 200;  // ixocut-hal was silent
inline constexpr std::size_t kHalNameMax = 36;      // HAL's 47 without "ixocut-hal."
inline constexpr std::size_t kHalPinsMax = 256;
inline constexpr std::size_t kHalAskMax = 256;      // bytes of a client's line
inline constexpr std::size_t kHalTellMax = 32'768;  // bytes of ixocut-hal's

// Pins that ixocut-hal has whatever its list says; not in `hello`. "client": somebody commands. The last one is an
// input.
inline constexpr std::string_view kHalHeartbeat = "heartbeat";
inline constexpr std::string_view kHalRearm = "rearm";
inline constexpr std::string_view kHalClient = "client";
inline constexpr std::string_view kHalServo = "servo-seconds";

enum class THalKind : std::uint8_t { hkBit, hkFloat, hkS32 };
using enum THalKind;

struct THalPin {
  THalKind Kind = hkBit;
  bool Output = false;
  std::string Name;
  friend bool operator==(const THalPin&, const THalPin&) = default;
};

enum class THalRole : std::uint8_t { hrCommand, hrWatch };
using enum THalRole;

// Why a connection ends.
enum class THalBye : std::uint8_t {
  hbEnds,      // ixocut-hal ends
  hbStalled,   // it was held up for over kHalStallMs
  hbRealtime,  // the realtime process stands still
  hbSilent,    // the client was silent
  hbSlow,      // the client does not read
  hbVersion,   // the client speaks another version
  hbCrowded,   // there are too many clients
  hbWrong      // a line is not understood, names no output, its number does not rise, or who only watches has sent it
};
using enum THalBye;

// What a client says.
enum class THalVerb : std::uint8_t { hvHello, hvSet, hvBeat, hvAlive, hvRearm };
using enum THalVerb;
struct THalAsk {
  THalVerb Verb = hvAlive;
  std::uint64_t Number = 0;  // N; of hvHello the version
  THalRole Role = hrWatch;   // hvHello's
  std::string Name = {};     // hvSet's
  double Value = 0.0;        // hvSet's; finite
  friend bool operator==(const THalAsk&, const THalAsk&) = default;
};

// What ixocut-hal says: one of these, or THalPin, or THalBye.
struct THalHello {
  std::uint64_t Version = kHalVersion;
  std::uint64_t Pins = 0;
  THalRole Role = hrWatch;
  friend bool operator==(const THalHello&, const THalHello&) = default;
};
struct THalFrame {
  bool Full = false;
  std::uint64_t Seq = 0;
  std::uint64_t Ms = 0;
  std::uint64_t Done = 0;
  std::vector<std::pair<std::string, double>> Values = {};  // may be no number
};
using THalTell = std::variant<THalHello, THalPin, THalFrame, THalBye>;

// Lines with their end.
[[nodiscard]] std::string HalLine(const THalAsk& ask);
[[nodiscard]] std::string HalLine(const THalHello& hello);
[[nodiscard]] std::string HalLine(const THalPin& pin);
[[nodiscard]] std::string HalLine(const THalFrame& frame);
[[nodiscard]] std::string HalLine(THalBye bye);

// Of lines without their end; the problem quotes what is wrong. A `set` of a bit is not checked here: who has the list
// does.
[[nodiscard]] TResult<THalAsk> ParseHalAsk(std::string_view line);
[[nodiscard]] TResult<THalTell> ParseHalTell(std::string_view line);

// "bit out laser": a pin as the list of ixocut-hal spells it.
[[nodiscard]] TResult<THalPin> ParseHalPin(std::string_view text);
// The list as a file: a pin a line, with any blanks; "#" begins a comment. The problem's Where is "line 3".
[[nodiscard]] TResult<std::vector<THalPin>> ParseHalPins(std::string_view file);

// For people, through Tr: "the client was silent".
[[nodiscard]] const char* HalByeText(THalBye bye);

// Lines out of bytes as they come.
class THalLines {
 public:
  explicit THalLines(std::size_t longest) : FLongest(longest) {}
  void Add(std::string_view bytes) { FBytes.append(bytes); }
  // The next whole line without its end, valid until the next call; none: not yet, or never when TooLong.
  [[nodiscard]] std::optional<std::string_view> Next();
  // What waits is longer than a line may be: the connection is of no more use.
  [[nodiscard]] bool TooLong() const { return FTooLong; }

 private:
  const std::size_t FLongest;
  std::string FBytes;
  std::size_t FBegin = 0;
  bool FTooLong = false;
};

}  // namespace ixocamglue
