#include "endpoint/certificate.hpp"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace tavrel::endpoint {
namespace {

void check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("loopback certificate: ") + what + " failed");
}

void addExtension(X509* cert, int nid, const char* value) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
  check(ext != nullptr, "X509V3_EXT_conf_nid");
  const bool added = X509_add_ext(cert, ext, -1) == 1;
  X509_EXTENSION_free(ext);
  check(added, "X509_add_ext");
}

}  // namespace

LoopbackCertificate makeLoopbackCertificate() {
  LoopbackCertificate result;
  result.key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  check(result.key != nullptr, "EVP_PKEY_Q_keygen");

  result.cert.reset(X509_new());
  X509* cert = result.cert.get();
  check(cert != nullptr, "X509_new");
  check(X509_set_version(cert, X509_VERSION_3) == 1, "X509_set_version");
  // A random serial: clients that cache certificates by issuer and serial must not mix two runs.
  BIGNUM* serial = BN_new();
  check(serial != nullptr && BN_rand(serial, 63, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1, "BN_rand");
  const bool serialSet = BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(cert)) != nullptr;
  BN_free(serial);
  check(serialSet, "BN_to_ASN1_INTEGER");
  // Backdated a minute against clock skew between the server and the client's view of time.
  check(X509_gmtime_adj(X509_getm_notBefore(cert), -60) != nullptr, "X509_gmtime_adj");
  check(X509_gmtime_adj(X509_getm_notAfter(cert), 7L * 24 * 3600) != nullptr, "X509_gmtime_adj");
  check(X509_set_pubkey(cert, result.key.get()) == 1, "X509_set_pubkey");

  X509_NAME* name = X509_get_subject_name(cert);
  check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>("tavrel loopback"), -1, -1,
                                   0) == 1,
        "X509_NAME_add_entry_by_txt");
  check(X509_set_issuer_name(cert, name) == 1, "X509_set_issuer_name");

  addExtension(cert, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(cert, NID_key_usage, "critical,digitalSignature,keyCertSign");
  addExtension(cert, NID_ext_key_usage, "serverAuth");
  addExtension(cert, NID_subject_key_identifier, "hash");
  addExtension(cert, NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
  check(X509_sign(cert, result.key.get(), EVP_sha256()) > 0, "X509_sign");

  BIO* bio = BIO_new(BIO_s_mem());
  check(bio != nullptr, "BIO_new");
  const bool written = PEM_write_bio_X509(bio, cert) == 1;
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  if (written && size > 0) result.pem.assign(data, static_cast<std::size_t>(size));
  BIO_free(bio);
  check(!result.pem.empty(), "PEM_write_bio_X509");
  return result;
}

}  // namespace tavrel::endpoint
