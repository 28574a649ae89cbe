#include "controller/net/Tls.h"

#include <ctime>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <openssl/err.h>
#include <openssl/pem.h>

#include "controller/net/TlsParts.h"
#include "controller/process/RealTime.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr const char* kCiphers = "ECDHE+AESGCM:ECDHE+CHACHA20";  // of TLS 1.2; those of 1.3 are all of this kind
constexpr std::int64_t kDayMs = 24LL * 3600 * 1000;

std::int64_t MomentMs(const ASN1_TIME* moment) {
  std::tm parts{};
  return ASN1_TIME_to_tm(moment, &parts) == 1 ? static_cast<std::int64_t>(timegm(&parts)) * 1000 : 0;
}

// Its owner reads it, and the group where the owner is root, as the system's own keys are kept.
bool KeptSecret(const struct stat& key) {
  return (key.st_mode & S_IRWXO) == 0 && ((key.st_mode & S_IRWXG) == 0 || key.st_uid == 0);
}

TResult<TTlsOwn<EVP_PKEY>> ReadKey(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && !KeptSecret(status))
    return TProblem{.What = Tr("others can read the key"),
                    .Where = file.string(),
                    .Why = Format(Tr("its rights are %03o"), status.st_mode & 0777U),
                    .Remedy = Format("chmod 600 %s", file.c_str())};
  const TResult<std::string> text = ReadFile(file);
  if (!text)
    return TProblem{.What = Tr("the key cannot be read"),
                    .Where = file.string(),
                    .Why = text.Problem().Why,
                    .Remedy = Tr("--key names a PEM file that this account can read")};
  TProblem unusable{.What = Tr("this is no key that can be used"),
                    .Where = file.string(),
                    .Why = {},
                    .Remedy = Tr("a PEM file with the certificate's private key, without a passphrase")};
  if (text->find("ENCRYPTED") != std::string::npos) {  // nobody is there to be asked for it
    unusable.Why = Tr("it is behind a passphrase");
    return unusable;
  }
  const TTlsOwn<BIO> bytes(BIO_new_mem_buf(text->data(), static_cast<int>(text->size())));
  TTlsOwn<EVP_PKEY> key(PEM_read_bio_PrivateKey(bytes.get(), nullptr, nullptr, nullptr));
  if (key) return key;
  unusable.Why = TakeTlsError();
  return unusable;
}

TResult<> ReadCertificate(SSL_CTX& context, const std::filesystem::path& file) {
  const char* const remedy = Tr("--cert names a PEM file: the controller's certificate, then those that issued it");
  if (const TResult<std::string> text = ReadFile(file); !text)
    return TProblem{.What = Tr("the certificate cannot be read"),
                    .Where = file.string(),
                    .Why = text.Problem().Why,
                    .Remedy = remedy};
  if (SSL_CTX_use_certificate_chain_file(&context, file.c_str()) != 1)
    return TProblem{.What = Tr("this is no certificate that can be used"),
                    .Where = file.string(),
                    .Why = TakeTlsError(),
                    .Remedy = remedy};
  const TTlsSpan good = GoodFor(SSL_CTX_get0_certificate(&context));
  const std::int64_t now = RealUnixMs();
  if (now > good.UntilMs)
    return TProblem{.What = Tr("the certificate has expired"),
                    .Where = file.string(),
                    .Why = Format(Tr("it was good until %s"), TlsMoment(good.UntilMs).c_str()),
                    .Remedy = Tr("get a new one, or set this machine's clock right")};
  if (now < good.FromMs)
    return TProblem{.What = Tr("the certificate is not good yet"),
                    .Where = file.string(),
                    .Why = Format(Tr("it is good from %s on"), TlsMoment(good.FromMs).c_str()),
                    .Remedy = Tr("get a new one, or set this machine's clock right")};
  return {};
}

}  // namespace

std::string TakeTlsError() {
  const unsigned long error = ERR_peek_last_error();
  const char* const reason = ERR_reason_error_string(error);
  std::string text = reason ? reason : Format("OpenSSL %lx", error);
  ERR_clear_error();
  return text;
}

TTlsSpan GoodFor(const X509* certificate) {
  return {MomentMs(X509_get0_notBefore(certificate)), MomentMs(X509_get0_notAfter(certificate))};
}

std::string TlsMoment(std::int64_t unixMs) { return FormatLocal(FromUnixMs(unixMs)); }

TServerTls::TServerTls(std::string certificate, ssl_ctx_st* context)
    : FCertificate(std::move(certificate)),
      FContext(context),
      FUntilMs(GoodFor(SSL_CTX_get0_certificate(context)).UntilMs) {}

TServerTls::~TServerTls() { SSL_CTX_free(FContext); }

TResult<std::shared_ptr<const TServerTls>> TServerTls::Read(const std::filesystem::path& certificate,
                                                            const std::filesystem::path& key) {
  ERR_clear_error();
  TTlsOwn<SSL_CTX> context(SSL_CTX_new(TLS_server_method()));
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
      SSL_CTX_set_cipher_list(context.get(), kCiphers) != 1)
    return TProblem{.What = Tr("TLS cannot be used here"), .Where = {}, .Why = TakeTlsError()};
  SSL_CTX_set_options(context.get(), SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
  SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS);  // of connections that are idle

  if (const TResult<> read = ReadCertificate(*context, certificate); !read) return read.Problem();
  const auto secret = ReadKey(key);
  if (!secret) return secret.Problem();
  if (SSL_CTX_use_PrivateKey(context.get(), secret->get()) != 1 || SSL_CTX_check_private_key(context.get()) != 1) {
    ERR_clear_error();
    return TProblem{.What = Tr("the key is not the certificate's"),
                    .Where = key.string(),
                    .Why = Format(Tr("the certificate is %s"), certificate.c_str()),
                    .Remedy = Tr("name the two that belong together with --cert and --key")};
  }
  return std::shared_ptr<const TServerTls>(new TServerTls(certificate.string(), context.release()));
}

void TServerTls::LogState() const {
  const bool soon = FUntilMs - RealUnixMs() < kSoonDays * kDayMs;
  LogMsg(soon ? lkWarning : lkInfo, 0,
         Format(Tr("TLS: the certificate %s is good until %s"), FCertificate.c_str(), TlsMoment(FUntilMs).c_str()),
         "TServerTls");
}

}  // namespace ixocontroller
