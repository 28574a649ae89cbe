// The certificate and the key that a controller shows to who comes by TLS: read and checked as a whole, before anything
// listens. TLS 1.2 at least, with forward secrecy and authenticated ciphers only. Immutable; any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "ixocamglue/support/Problem.h"

struct ssl_ctx_st;

namespace ixocontroller {
using namespace ixocamglue;

class TServerTls {
 public:
  // PEM files: the controller's certificate first, then those that issued it; its key, without a passphrase. Refused: a
  // file that cannot be read, a key that others can read or that is not the certificate's, a certificate that is not
  // good now.
  [[nodiscard]] static TResult<std::shared_ptr<const TServerTls>> Read(const std::filesystem::path& certificate,
                                                                       const std::filesystem::path& key);
  ~TServerTls();
  TServerTls(const TServerTls&) = delete;
  TServerTls& operator=(const TServerTls&) = delete;

  // OpenSSL's; who makes a connection with it need not keep this. Never null.
  [[nodiscard]] ssl_ctx_st* Context() const { return FContext; }
  // One line for the log: for how long it is good. A warning within kSoonDays of the end.
  static constexpr std::int64_t kSoonDays = 14;
  // Does not fail.
  void LogState() const;

 private:
  TServerTls(std::string certificate, ssl_ctx_st* context);

  const std::string FCertificate;  // the file
  ssl_ctx_st* const FContext;
  std::int64_t FUntilMs = 0;  // since 1970
};

}  // namespace ixocontroller
