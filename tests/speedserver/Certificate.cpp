#include "Certificate.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <memory>
#include <set>
#include <stdexcept>

namespace skylet::test {

namespace {

struct Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using Certificate = std::unique_ptr<X509, Free>;
using Key = std::unique_ptr<EVP_PKEY, Free>;

/// What the certificate of an authority and its key sign.
struct Signer {
    Certificate certificate;
    Key key;
};

Signer readSigner(const std::string& file) {
    const auto open = [&] { return std::unique_ptr<BIO, Free>(BIO_new_file(file.c_str(), "r")); };
    Signer signer{Certificate(PEM_read_bio_X509(open().get(), nullptr, nullptr, nullptr)),
                  Key(PEM_read_bio_PrivateKey(open().get(), nullptr, nullptr, nullptr))};
    if (!signer.certificate || !signer.key) {
        throw std::invalid_argument("no authority in " + file);
    }
    return signer;
}

void addExtension(X509* certificate, int kind, const std::string& value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

} // namespace

void useBadCertificate(SSL_CTX* context, const std::string& kind, const std::string& authority,
                       const std::string& name) {
    static const std::set<std::string> kinds{"expired",    "notYetValid",      "otherName",
                                             "selfSigned", "unknownAuthority", "forClients"};
    if (!kinds.contains(kind)) {
        throw std::invalid_argument("no such certificate: " + kind);
    }
    constexpr long day = 24L * 60 * 60;
    const Signer signer = readSigner(authority);
    const Key key(EVP_EC_gen("P-256"));
    const Certificate certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 2);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), kind == "notYetValid" ? day : -2 * day);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kind == "expired" ? -day : 2 * day);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    const auto* text = reinterpret_cast<const unsigned char*>("bad server");
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, text, -1, -1, 0);
    addExtension(certificate.get(), NID_subject_alt_name, kind == "otherName" ? "DNS:other.example" : name);
    if (kind == "forClients") {
        addExtension(certificate.get(), NID_ext_key_usage, "clientAuth");
    }
    const bool isSelfSigned = kind == "selfSigned";
    X509_set_issuer_name(certificate.get(), isSelfSigned ? subject : X509_get_subject_name(signer.certificate.get()));
    // that key is not the known authority's
    const Key foreignKey(kind == "unknownAuthority" ? EVP_EC_gen("P-256") : nullptr);
    X509_sign(certificate.get(),
              isSelfSigned ? key.get()
              : foreignKey ? foreignKey.get()
                           : signer.key.get(),
              EVP_sha256());
    if (SSL_CTX_use_certificate(context, certificate.get()) != 1 || SSL_CTX_use_PrivateKey(context, key.get()) != 1) {
        throw std::runtime_error("the certificate cannot be used");
    }
}

} // namespace skylet::test
