#pragma once

#include <QByteArray>
#include <QSslCertificate>

#include <memory>

// A fresh key and certificate for 127.0.0.1 and localhost, made at test time so that only the test
// that made it can trust it.
class SelfSignedCertificate {
public:
    SelfSignedCertificate();
    ~SelfSignedCertificate();
    SelfSignedCertificate(const SelfSignedCertificate&) = delete;
    SelfSignedCertificate& operator=(const SelfSignedCertificate&) = delete;

    bool isValid() const { return m_certificate && m_key; }
    QSslCertificate certificate() const; // for the client's trust list

    // OpenSSL handles, owned by this object (X509* and EVP_PKEY*).
    void* x509() const { return m_certificate.get(); }
    void* privateKey() const { return m_key.get(); }

private:
    std::shared_ptr<void> m_certificate;
    std::shared_ptr<void> m_key;
};
