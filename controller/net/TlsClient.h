// The other side of TLS: who asks. It moves no bytes itself: what has come is taken in, what is to be sent is given
// out. Not locked.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

// TLS 1.2 at least; the other end's certificate has to be good, for `host`, and issued by somebody who is trusted. What
// is only asked does not fail.
class TTlsClient {
 public:
  // `trusted`: a PEM file with the certificates of those who are; empty: the system's. Throws EProblem (pbUnusable).
  TTlsClient(std::string host, const std::filesystem::path& trusted);
  ~TTlsClient();
  TTlsClient(const TTlsClient&) = delete;
  TTlsClient& operator=(const TTlsClient&) = delete;

  // Before the first Take nothing has to have come. What was said is appended to `text`. A problem is the end.
  TResult<> Take(std::string_view bytes, std::string& text);
  // Only when it is Agreed.
  TResult<> Say(std::string_view text);
  // What has to be sent after each of them.
  [[nodiscard]] std::string Give();

  [[nodiscard]] bool Agreed() const;
  [[nodiscard]] bool Ended() const { return FEnded; }  // the other end has said so

 private:
  [[nodiscard]] TProblem WhyNot() const;
  [[nodiscard]] TProblem WhyNotTrusted(long verdict) const;

  struct TParts;
  const std::string FHost;
  const std::unique_ptr<TParts> FParts;
  bool FEnded = false;
};

}  // namespace ixocontroller
