// The records and interfaces of device communication. Records and free functions are any thread's. What does not say
// how it fails does not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ixocamglue/platform/comm/Bytes.h"

namespace ixocamglue {

// A text field of 256 UTF-16 units, zero-terminated. Reading stops at the first zero, and with U+FFFD at half of a
// pair; setting cuts at 255 units, never splits a pair, and puts U+FFFD for what is no UTF-8.
using TUtf16Field = char16_t[256];
void SetUtf16(TUtf16Field& field, std::string_view text);
[[nodiscard]] std::string GetUtf16(const TUtf16Field& field);

struct TCommSerial {
  std::int32_t Port;      // see SerialPortPath
  TUtf16Field Settings;   // "9600,n,8,1": rate, parity, data bits, stop bits
  std::int32_t BaudRate;  // kept beside the settings; the transport does not use it

  void Initialize();
};

struct TCommNet {
  TUtf16Field Host;  // a numeric address or a name
  std::int32_t Port;

  void Initialize();
};

enum class TTransType : std::uint8_t { ttText, ttBinary };
using enum TTransType;

// A link that carries byte buffers. Used by one thread at a time: a device object's data lock sees to that. A link that
// fails says so by its answer.
class INcDataTransIntf {
 public:
  virtual ~INcDataTransIntf() = default;
  // True when the link is usable; may try to establish it.
  [[nodiscard]] virtual bool CheckConnection() = 0;
  // True when the bytes were handed to the link.
  [[nodiscard]] virtual bool SendBuff(const TBytes& buf) = 0;
  // What was received, empty if nothing; waits as its transport says.
  [[nodiscard]] virtual TBytes GetReceiveBuff() = 0;
};

// The second face of the three transports, for a protocol that knows where its frames end: nothing here pings or waits
// longer than it must. Same rule for threads. A link that fails says so by its answer.
class INcStreamIntf {
 public:
  virtual ~INcStreamIntf() = default;
  // As far as is known without asking the network or the driver.
  [[nodiscard]] virtual bool Linked() const = 0;
  // Closes what stands and opens it anew: connects within the time, opens the port again.
  [[nodiscard]] virtual bool Reopen(std::uint32_t timeoutMs) = 0;
  virtual void CloseLink() = 0;
  // Of the link that stands, another one after each opening, in the whole process. 0: not known.
  [[nodiscard]] virtual std::uint64_t LinkId() const { return 0; }
  // The link that is opened next brings nothing of what was under way on the one before.
  [[nodiscard]] virtual bool ClosingForgets() const { return false; }
  // Throws away what has come in, at most `atMost` bytes; returns how many. A link found ended is closed.
  [[nodiscard]] virtual std::size_t Drain(std::size_t atMost) = 0;
  // What comes in first within the time, any number of ms, at once. Empty: nothing came, or the link has ended and is
  // closed.
  [[nodiscard]] virtual TBytes ReceiveWithin(std::uint32_t ms) = 0;
};

// What the update thread needs of its object. What an update throws is logged, and the object has no more of them: its
// thread has failed.
class INcThrdStateIntf {
 public:
  virtual ~INcThrdStateIntf() = default;
  [[nodiscard]] virtual bool TryLockData() = 0;  // without waiting
  virtual void LockData() = 0;
  virtual void UnLockData() = 0;
  virtual void UpdateStatus() = 0;  // on the update thread, under the data lock
  // What an operator knows the device by; asked on the update thread, before its first round.
  [[nodiscard]] virtual std::string DeviceName() const { return "device"; }
};

// Appends the bytes of pairs of hexadecimal digits in either case. Shorter than 3 characters: nothing happens; a
// leading "$" is dropped; an odd last character is ignored. A pair that is no number throws std::invalid_argument and
// leaves the array as it was.
void HexStrToBytes(std::string_view s, TBytes& bytes);
// Two upper-case digits per byte, no separators.
[[nodiscard]] std::string BytesToHexStr(std::span<const std::uint8_t> bytes);

}  // namespace ixocamglue
