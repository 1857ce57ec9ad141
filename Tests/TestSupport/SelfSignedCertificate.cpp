#include "TestSupport/SelfSignedCertificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace {

bool addSubjectAltName(X509* certificate) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension =
        X509V3_EXT_conf_nid(nullptr, &context, NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
    if (!extension)
        return false;
    const bool added = X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

} // namespace

SelfSignedCertificate::SelfSignedCertificate() {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    if (!key)
        return;
    m_key.reset(key, [](void* p) { EVP_PKEY_free(static_cast<EVP_PKEY*>(p)); });

    X509* certificate = X509_new();
    if (!certificate)
        return;
    std::shared_ptr<void> owned(certificate, [](void* p) { X509_free(static_cast<X509*>(p)); });
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -60);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 24 * 60 * 60);
    X509_set_pubkey(certificate, key);
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"),
                               -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    if (!addSubjectAltName(certificate) || X509_sign(certificate, key, EVP_sha256()) == 0)
        return;
    m_certificate = std::move(owned);
}

SelfSignedCertificate::~SelfSignedCertificate() = default;

QSslCertificate SelfSignedCertificate::certificate() const {
    if (!isValid())
        return QSslCertificate();
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, static_cast<X509*>(m_certificate.get()));
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    QSslCertificate result(QByteArray(data, qsizetype(size)), QSsl::Pem);
    BIO_free(bio);
    return result;
}
