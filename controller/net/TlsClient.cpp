#include "controller/net/TlsClient.h"

#include <arpa/inet.h>
#include <array>
#include <utility>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "controller/net/TlsParts.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

bool IsNumber(const std::string& host) {
  std::array<unsigned char, sizeof(in6_addr)> number{};
  return ::inet_pton(AF_INET, host.c_str(), number.data()) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), number.data()) == 1;
}

// "cutter.example, 192.168.0.7", as a certificate names itself.
std::string NamesOf(const X509* certificate) {
  std::string names;
  auto* const all = static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
  for (int i = 0; i < sk_GENERAL_NAME_num(all); ++i) {
    const GENERAL_NAME* const name = sk_GENERAL_NAME_value(all, i);
    if (name->type != GEN_DNS && name->type != GEN_IPADD) continue;
    const unsigned char* const bytes = ASN1_STRING_get0_data(name->d.ia5);
    const int size = ASN1_STRING_length(name->d.ia5);
    std::array<char, INET6_ADDRSTRLEN> number{};
    if (!names.empty()) names += ", ";
    if (name->type == GEN_DNS)
      names.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    else if (::inet_ntop(size == 4 ? AF_INET : AF_INET6, bytes, number.data(), number.size()))
      names += number.data();
  }
  GENERAL_NAMES_free(all);
  return names;
}

}  // namespace

struct TTlsClient::TParts {
  TTlsOwn<SSL_CTX> Context;
  TTlsOwn<SSL> Connection;
  BIO* In = nullptr;  // the connection's
  BIO* Out = nullptr;
  // Of the certificate that is not accepted.
  std::string Names;
  std::int64_t UntilMs = 0;

  // OpenSSL's, at each certificate of the chain that it has looked at.
  static int Seen(int accepted, X509_STORE_CTX* chain) {
    if (accepted == 1) return accepted;
    const auto* const connection =
        static_cast<SSL*>(X509_STORE_CTX_get_ex_data(chain, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* const my = static_cast<TParts*>(SSL_get_ex_data(connection, 0));
    my->Names = NamesOf(X509_STORE_CTX_get0_cert(chain));
    if (const X509* const which = X509_STORE_CTX_get_current_cert(chain)) my->UntilMs = GoodFor(which).UntilMs;
    return accepted;
  }
};

TTlsClient::TTlsClient(std::string host, const std::filesystem::path& trusted)
    : FHost(std::move(host)), FParts(new TParts) {
  TParts& my = *FParts;
  ERR_clear_error();
  my.Context.reset(SSL_CTX_new(TLS_client_method()));
  if (my.Context && trusted.empty()) SSL_CTX_set_default_verify_paths(my.Context.get());
  if (!trusted.empty()) {
    std::string why;
    if (const TResult<std::string> text = ReadFile(trusted); !text)
      why = text.Problem().Why;
    else if (my.Context && SSL_CTX_load_verify_locations(my.Context.get(), trusted.c_str(), nullptr) != 1)
      why = TakeTlsError();
    if (!why.empty())
      throw EProblem(pbUnusable, TProblem{.What = Tr("the certificates of those who are trusted cannot be read"),
                                          .Where = trusted.string(),
                                          .Why = why,
                                          .Remedy = Tr("name a PEM file with the certificate of who has issued the "
                                                       "other end's")});
  }
  if (my.Context) {
    SSL_CTX_set_min_proto_version(my.Context.get(), TLS1_2_VERSION);
    SSL_CTX_set_verify(my.Context.get(), SSL_VERIFY_PEER, &TParts::Seen);
    my.Connection.reset(SSL_new(my.Context.get()));
  }
  TTlsOwn<BIO> in(BIO_new(BIO_s_mem()));
  TTlsOwn<BIO> out(BIO_new(BIO_s_mem()));
  SSL* const connection = my.Connection.get();
  const auto named = [&] {
    if (IsNumber(FHost)) return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(connection), FHost.c_str()) == 1;
    SSL_set_hostflags(connection, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    std::string name = FHost;
    return SSL_set1_host(connection, name.c_str()) == 1 &&
           SSL_ctrl(connection, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, name.data()) == 1;
  };
  if (!connection || !in || !out || SSL_set_ex_data(connection, 0, &my) != 1 || !named())
    throw EProblem(pbUnusable, TProblem{.What = Tr("TLS cannot be used here"), .Where = FHost, .Why = TakeTlsError()});
  my.In = in.get();
  my.Out = out.get();
  SSL_set_bio(connection, in.release(), out.release());
  SSL_set_connect_state(connection);
}

TTlsClient::~TTlsClient() = default;

bool TTlsClient::Agreed() const { return SSL_is_init_finished(FParts->Connection.get()) == 1; }

TResult<> TTlsClient::Take(std::string_view bytes, std::string& text) {
  TParts& my = *FParts;
  ERR_clear_error();
  // A BIO in memory takes all.
  if (!bytes.empty()) BIO_write(my.In, bytes.data(), static_cast<int>(bytes.size()));
  for (;;) {
    std::array<char, 16'384> buffer;  // written below
    std::size_t got = 0;
    const int done = SSL_read_ex(my.Connection.get(), buffer.data(), buffer.size(), &got);
    if (done == 1) {
      text.append(buffer.data(), got);
      continue;
    }
    switch (SSL_get_error(my.Connection.get(), done)) {
      case SSL_ERROR_WANT_READ: return {};
      case SSL_ERROR_ZERO_RETURN: FEnded = true; return {};
      default: return WhyNot();
    }
  }
}

TResult<> TTlsClient::Say(std::string_view text) {
  ERR_clear_error();
  std::size_t done = 0;
  if (text.empty() || SSL_write_ex(FParts->Connection.get(), text.data(), text.size(), &done) == 1) return {};
  return WhyNot();
}

std::string TTlsClient::Give() {
  std::string bytes(BIO_ctrl_pending(FParts->Out), '\0');
  if (!bytes.empty()) BIO_read(FParts->Out, bytes.data(), static_cast<int>(bytes.size()));
  return bytes;
}

TProblem TTlsClient::WhyNot() const {
  const long verdict = SSL_get_verify_result(FParts->Connection.get());
  if (!Agreed() && verdict != X509_V_OK) {
    ERR_clear_error();
    return WhyNotTrusted(verdict);
  }
  const bool plain = ERR_GET_REASON(ERR_peek_last_error()) == SSL_R_WRONG_VERSION_NUMBER;
  const std::string why = TakeTlsError();
  if (plain)
    return {.What = Tr("what answers there does not speak TLS"),
            .Where = FHost,
            .Why = why,
            .Remedy = Tr("ask for http:// instead, or for another port")};
  return {.What = Tr("TLS was not agreed"), .Where = FHost, .Why = why};
}

TProblem TTlsClient::WhyNotTrusted(long verdict) const {
  TProblem problem{.What = Tr("the other end's certificate is not accepted"), .Where = FHost};
  switch (verdict) {
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      problem.Why = Format(Tr("it is for %s"), FParts->Names.c_str());
      problem.Remedy = Tr("ask for a name that stands in it");
      break;
    case X509_V_ERR_CERT_HAS_EXPIRED:
      problem.Why = Format(Tr("it was good until %s"), TlsMoment(FParts->UntilMs).c_str());
      problem.Remedy = Tr("get a new one for the other end, or set this machine's clock right");
      break;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      problem.Why = Tr("nobody who is trusted here has issued it");
      problem.Remedy = Tr("name the certificate of who has issued it (--ca, or \"ca\" of a webhook)");
      break;
    default: problem.Why = X509_verify_cert_error_string(verdict);
  }
  return problem;
}

}  // namespace ixocontroller
