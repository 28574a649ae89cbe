// What both sides of TLS need of OpenSSL. Only their sources include it. Any thread, each with objects of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <openssl/ssl.h>

namespace ixocontroller {

struct TTlsFree {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(SSL* connection) const { SSL_free(connection); }
  void operator()(BIO* bytes) const { BIO_free(bytes); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
template <class T>
using TTlsOwn = std::unique_ptr<T, TTlsFree>;

// Why the last call on this thread has failed, in OpenSSL's own words; all that it keeps of failures is forgotten.
[[nodiscard]] std::string TakeTlsError();
// A certificate's first and its last moment, in ms since 1970.
struct TTlsSpan {
  std::int64_t FromMs = 0, UntilMs = 0;
};
// A moment that cannot be read is 0.
[[nodiscard]] TTlsSpan GoodFor(const X509* certificate);
// A certificate's moment as this place's clock shows it. Does not fail.
[[nodiscard]] std::string TlsMoment(std::int64_t unixMs);

}  // namespace ixocontroller
