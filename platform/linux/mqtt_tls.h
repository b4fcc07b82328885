// TLS towards a broker: its certificate must be good and bear the name that it was called by. The MQTT library's own
// set-up would not say what is wrong with a certificate.
#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <memory>
#include <string>

namespace platform {

// What the check of the broker's certificate found wrong: a code of the TLS library's, 0 for nothing.
struct TlsVerdict {
  std::atomic<long> error{0};
};

struct TlsContextDeleter {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TlsContext = std::unique_ptr<SSL_CTX, TlsContextDeleter>;

// Whether host is an address and not a name.
bool IsAddress(const std::string& host);

// For connections to host (a name or an address). ca names a file with the certificates to go back to, empty the
// system's. The verdict must outlive the connections. Null, with the reason, when ca cannot be used.
TlsContext MakeTlsContext(const std::string& host, const std::string& ca, TlsVerdict* verdict, std::string* problem);

// In words, with the date where it matters.
std::string VerdictText(long error);

}  // namespace platform
