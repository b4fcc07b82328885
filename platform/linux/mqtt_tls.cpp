#include "mqtt_tls.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <ctime>

namespace platform {

namespace {

int OnCertificate(int good, X509_STORE_CTX* store) {
  if (good == 1) return 1;
  const auto* const ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  auto* const verdict = static_cast<TlsVerdict*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
  verdict->error = X509_STORE_CTX_get_error(store);
  return 0;
}

}  // namespace

bool IsAddress(const std::string& host) {
  in6_addr address;
  return inet_pton(AF_INET, host.c_str(), &address) == 1 || inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

TlsContext MakeTlsContext(const std::string& host, const std::string& ca, TlsVerdict* verdict, std::string* problem) {
  TlsContext context(SSL_CTX_new(TLS_client_method()));
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) {
    *problem = "no memory for TLS";
    return nullptr;
  }
  const int trusted = ca.empty() ? SSL_CTX_set_default_verify_paths(context.get())
                                 : SSL_CTX_load_verify_locations(context.get(), ca.c_str(), nullptr);
  if (trusted != 1) {
    *problem = "no certificates can be read from " + (ca.empty() ? "the system's directory" : ca);
    ERR_clear_error();
    return nullptr;
  }
  X509_VERIFY_PARAM* const check = SSL_CTX_get0_param(context.get());
  X509_VERIFY_PARAM_set_hostflags(check, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  const int named = IsAddress(host) ? X509_VERIFY_PARAM_set1_ip_asc(check, host.c_str())
                                    : X509_VERIFY_PARAM_set1_host(check, host.c_str(), host.size());
  if (named != 1) {
    *problem = "no certificate can bear the name " + host;
    return nullptr;
  }
  SSL_CTX_set_app_data(context.get(), verdict);
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, OnCertificate);
  return context;
}

std::string VerdictText(long error) {
  std::string text = std::string("its certificate is refused: ") + X509_verify_cert_error_string(error);
  if (error == X509_V_ERR_CERT_NOT_YET_VALID || error == X509_V_ERR_CERT_HAS_EXPIRED) {
    const time_t now = time(nullptr);
    tm parts = {};
    char date[32];
    gmtime_r(&now, &parts);
    strftime(date, sizeof date, "%Y-%m-%d", &parts);
    text += std::string(" (by this device's clock it is ") + date + ")";
  }
  return text;
}

}  // namespace platform
