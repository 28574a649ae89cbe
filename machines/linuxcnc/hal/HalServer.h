// The wire's end in `ixocut-hal`: takes clients, carries out what the one that commands says, and tells all of them
// what the pins show (HalWire.h). Knows no HAL: the pins are behind an interface. One thread; every call returns at
// once but Wait.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "machines/linuxcnc/HalWire.h"

namespace ixocamglue {

// The pins of the list by their place in it, and ixocut-hal's own.
class IHalPins {
 public:
  virtual ~IHalPins() = default;
  [[nodiscard]] virtual double Read(std::size_t pin) const = 0;
  virtual void Write(std::size_t pin, double value) = 0;
  [[nodiscard]] virtual double ServoSeconds() const = 0;
  virtual void SetHeartbeat(bool on) = 0;
  virtual void SetRearm(bool on) = 0;
  virtual void SetClient(bool on) = 0;
};

class THalServer {
 public:
  static constexpr std::size_t kClientsMax = 8;

  // `clock` gives ms that never go back. `pins` outlives the server. Every output is 0 from here on.
  THalServer(std::vector<THalPin> list, IHalPins& pins, std::function<std::uint64_t()> clock);
  ~THalServer();  // as End
  THalServer(const THalServer&) = delete;
  THalServer& operator=(const THalServer&) = delete;

  // On this path, which nobody else listens on; a socket that a dead one has left is replaced.
  [[nodiscard]] TResult<> Listen(const std::string& path);
  // Until something comes, or the next round is due; at most kHalFrameMs.
  void Wait() const;
  void Round();
  // Every output FALSE or 0, everybody told, every connection closed. What may come first after a signal.
  void End();

 private:
  struct TClient {
    int Fd = -1;
    THalLines Lines{kHalAskMax};
    std::string Unsent = {};
    bool Greeted = false;
    bool Fresh = true;  // gets a full frame next
    std::uint64_t Number = 0;
    std::uint64_t Seq = 0;
    std::uint64_t HeardMs = 0;
    std::optional<THalBye> Bye = std::nullopt;
    bool Gone = false;
  };

  void OutputsOff();
  void NoteStall();
  void NoteServo();
  void EndCommand(THalBye bye);
  void Accept();
  void Hear(TClient& client);
  void Take(TClient& client, std::string_view line);
  void Greet(TClient& client, const THalAsk& ask);
  [[nodiscard]] bool Set(const THalAsk& ask);
  void Tell();
  void Say(TClient& client, const std::string& text);
  void DropEnded();
  void EndAll(THalBye bye);

  const std::vector<THalPin> FList;
  IHalPins& FPins;
  const std::function<std::uint64_t()> FClock;
  const std::uint64_t FStartMs;
  std::string FPath;
  int FListener = -1;
  std::list<TClient> FClients;
  TClient* FCommander = nullptr;
  bool FHeartbeat = false;
  std::optional<std::uint64_t> FRearmMs;  // when it rose
  std::uint64_t FSeenMs;                  // when this program was last seen to run
  std::uint64_t FServoMs;                 // when the realtime process was last seen to run
  double FServoSeconds;
  std::uint64_t FFrameMs = 0;  // of the last frame
  std::uint64_t FFullMs = 0;   // of the last full one
  std::vector<double> FShown;
};

}  // namespace ixocamglue
