#include "service/http/Tls.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <memory>

#include "base/FileIO.h"

namespace nulo::service {
namespace {

constexpr std::uintmax_t largestPem = 1024 * 1024;

gnutls_datum_t datumOf(std::string& bytes) {
    return {reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size())};
}

bool isCertificate(std::string& pem) {
    gnutls_x509_crt_t* chain = nullptr;
    unsigned count = 0;
    const auto bytes = datumOf(pem);
    if (gnutls_x509_crt_list_import2(&chain, &count, &bytes, GNUTLS_X509_FMT_PEM, 0) < 0)
        return false;
    for (unsigned i = 0; i < count; ++i)
        gnutls_x509_crt_deinit(chain[i]);
    gnutls_free(chain);
    return true;
}

/// A key with a pass phrase does not fit: a service cannot ask for the phrase.
bool belongTogether(std::string& certificate, std::string& key) {
    gnutls_certificate_credentials_t raw = nullptr;
    if (gnutls_certificate_allocate_credentials(&raw) < 0)
        return false;
    const std::unique_ptr<std::remove_pointer_t<decltype(raw)>,
                          void (*)(gnutls_certificate_credentials_t)>
        credentials(raw, gnutls_certificate_free_credentials);
    const auto one = datumOf(certificate);
    const auto other = datumOf(key);
    return gnutls_certificate_set_x509_key_mem(raw, &one, &other, GNUTLS_X509_FMT_PEM) >= 0;
}

}  // namespace

Result<TlsIdentity> loadTlsIdentity(const TlsFiles& files) {
    auto certificate = readFile(files.certificate, largestPem);
    if (!certificate || !isCertificate(*certificate))
        return Error{"tls.certificate: " + files.certificate.string() +
                     " is not a readable PEM file with a certificate"};
    auto key = readFile(files.key, largestPem);
    if (!key || !belongTogether(*certificate, *key))
        return Error{"tls.key: " + files.key.string() +
                     " is not a readable PEM file, without a pass phrase, with the key of the "
                     "certificate"};
    return TlsIdentity{std::move(*certificate), std::move(*key)};
}

}  // namespace nulo::service
