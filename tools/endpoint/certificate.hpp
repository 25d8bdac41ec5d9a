#pragma once

// A self-signed certificate made at run time for a server on the loopback interface: EC P-256,
// SHA-256, valid for IP:127.0.0.1 and DNS:localhost, a CA of its own so that a client can trust
// exactly it.

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace tavrel::endpoint {

struct X509Deleter {
  void operator()(X509* cert) const { X509_free(cert); }
};
struct EvpPkeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

struct LoopbackCertificate {
  std::unique_ptr<X509, X509Deleter> cert;
  std::unique_ptr<EVP_PKEY, EvpPkeyDeleter> key;
  std::string pem;  // the certificate alone, for a client's trust store
};

// Throws std::runtime_error when OpenSSL fails.
LoopbackCertificate makeLoopbackCertificate();

}  // namespace tavrel::endpoint
