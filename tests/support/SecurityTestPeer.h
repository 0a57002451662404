// SecurityTestPeer.h - certificates made at test time and an in-memory TLS server
//
// MakeCertificate builds an EC P-256 certificate (self-signed, or signed by a
// given issuer) with a chosen name, validity window and key usage, as PEM.
// TlsServerSession is the server side of one TLS connection over memory BIOs:
// the test moves the bytes, so it decides exactly how records are cut into
// segments. Header-only, for the platform and the smtp tests alike.
#pragma once

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <string>
#include <vector>

#include "support/RegistryTestEnv.h"

namespace testsupport {

struct TestCertificate {
    std::string certPem;
    std::string keyPem;
};

struct CertificateShape {
    std::string commonName = "localhost";
    long notBeforeDays = -1;  // relative to now
    long notAfterDays = 30;
    const TestCertificate* issuer = nullptr;  // null: self-signed
    const char* extendedKeyUsage = nullptr;   // e.g. "clientAuth", "serverAuth"
    bool isCa = false;
};

// PEM text of a certificate or a private key.
inline std::string ToPem(X509* cert, EVP_PKEY* key = nullptr) {
    BIO* bio = BIO_new(BIO_s_mem());
    if (key != nullptr) PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
    else PEM_write_bio_X509(bio, cert);
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<size_t>(length));
    BIO_free(bio);
    return pem;
}

inline X509* CertFromPem(const std::string& pem) {
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return cert;
}

inline EVP_PKEY* KeyFromPem(const std::string& pem) {
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    EVP_PKEY* key = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return key;
}

// Points TELMORAQ_CERT_STORE at `path` (null: unset) for one test.
struct StoreFolder : EnvSetting {
    explicit StoreFolder(const char* path) : EnvSetting("TELMORAQ_CERT_STORE", path) {}
};

inline void AddExtension(X509* cert, X509* issuer, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    X509_add_ext(cert, extension, -1);
    X509_EXTENSION_free(extension);
}

inline TestCertificate MakeCertificate(const CertificateShape& shape) {
    static long serial = 1;
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), serial++);
    X509_gmtime_adj(X509_getm_notBefore(cert), shape.notBeforeDays * 86400);
    X509_gmtime_adj(X509_getm_notAfter(cert), shape.notAfterDays * 86400);
    X509_set_pubkey(cert, key);
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(shape.commonName.c_str()), -1, -1, 0);
    X509* issuerCert = shape.issuer != nullptr ? CertFromPem(shape.issuer->certPem) : nullptr;
    EVP_PKEY* issuerKey = shape.issuer != nullptr ? KeyFromPem(shape.issuer->keyPem) : nullptr;
    X509_set_issuer_name(cert, issuerCert != nullptr ? X509_get_subject_name(issuerCert) : name);
    if (shape.isCa) AddExtension(cert, issuerCert ? issuerCert : cert, NID_basic_constraints, "critical,CA:TRUE");
    if (shape.extendedKeyUsage != nullptr)
        AddExtension(cert, issuerCert ? issuerCert : cert, NID_ext_key_usage, shape.extendedKeyUsage);
    X509_sign(cert, issuerKey != nullptr ? issuerKey : key, EVP_sha256());
    TestCertificate made{ToPem(cert), ToPem(nullptr, key)};
    X509_free(issuerCert);
    EVP_PKEY_free(issuerKey);
    X509_free(cert);
    EVP_PKEY_free(key);
    return made;
}

struct ServerSetup {
    TestCertificate certificate = MakeCertificate(CertificateShape());
    int maxVersion = 0;                   // e.g. TLS1_2_VERSION; 0: the library's highest
    bool requestClientCertificate = false;
    std::vector<TestCertificate> clientCas;  // issuers named in the request
    int tickets = -1;                      // session tickets after the handshake; -1: default
};

// The server end of one connection; the test carries the bytes both ways.
class TlsServerSession {
public:
    explicit TlsServerSession(const ServerSetup& setup) {
        ctx_ = SSL_CTX_new(TLS_server_method());
        X509* cert = CertFromPem(setup.certificate.certPem);
        EVP_PKEY* key = KeyFromPem(setup.certificate.keyPem);
        SSL_CTX_use_certificate(ctx_, cert);
        SSL_CTX_use_PrivateKey(ctx_, key);
        X509_free(cert);
        EVP_PKEY_free(key);
        if (setup.maxVersion != 0) SSL_CTX_set_max_proto_version(ctx_, setup.maxVersion);
        if (setup.tickets >= 0) SSL_CTX_set_num_tickets(ctx_, static_cast<size_t>(setup.tickets));
        if (setup.requestClientCertificate) {
            SSL_CTX_set_verify(ctx_, SSL_VERIFY_PEER, [](int, X509_STORE_CTX*) { return 1; });
            for (const TestCertificate& ca : setup.clientCas) {
                X509* caCert = CertFromPem(ca.certPem);
                SSL_CTX_add_client_CA(ctx_, caCert);
                X509_free(caCert);
            }
        }
        ssl_ = SSL_new(ctx_);
        in_ = BIO_new(BIO_s_mem());
        out_ = BIO_new(BIO_s_mem());
        SSL_set_bio(ssl_, in_, out_);
        SSL_set_accept_state(ssl_);
    }
    ~TlsServerSession() {
        SSL_free(ssl_);
        SSL_CTX_free(ctx_);
    }
    TlsServerSession(const TlsServerSession&) = delete;
    TlsServerSession& operator=(const TlsServerSession&) = delete;

    // Takes bytes from the client and advances the handshake; true when it is
    // done. Afterwards, Receive reads the application data instead.
    bool Feed(const std::string& bytes) {
        BIO_write(in_, bytes.data(), static_cast<int>(bytes.size()));
        if (SSL_is_init_finished(ssl_)) return true;
        const int rc = SSL_do_handshake(ssl_);
        if (rc != 1 && SSL_get_error(ssl_, rc) != SSL_ERROR_WANT_READ) failed_ = true;
        return rc == 1;
    }
    bool failed() const { return failed_; }
    bool done() const { return SSL_is_init_finished(ssl_); }

    // Everything the server has to send so far.
    std::string TakeOutput() {
        std::string bytes;
        char chunk[4096];
        int n;
        while ((n = BIO_read(out_, chunk, sizeof(chunk))) > 0) bytes.append(chunk, static_cast<size_t>(n));
        return bytes;
    }

    // One application data record per text, returned as bytes.
    std::string Seal(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) SSL_write(ssl_, text.data(), static_cast<int>(text.size()));
        return TakeOutput();
    }
    // Asks the client to update its keys too, then seals the texts.
    std::string SealAfterKeyUpdate(const std::vector<std::string>& texts) {
        SSL_key_update(ssl_, SSL_KEY_UPDATE_REQUESTED);
        return Seal(texts);
    }
    // TLS 1.2 only: the hello request that asks the client to start over.
    std::string StartRenegotiation() {
        SSL_renegotiate(ssl_);
        SSL_do_handshake(ssl_);
        return TakeOutput();
    }
    // Takes the client's bytes of a renegotiation; true once it is complete.
    bool FeedRenegotiation(const std::string& bytes) {
        BIO_write(in_, bytes.data(), static_cast<int>(bytes.size()));
        char sink[256];
        SSL_read(ssl_, sink, sizeof(sink));
        return SSL_renegotiate_pending(ssl_) == 0;
    }
    std::string SealCloseNotify() {
        SSL_shutdown(ssl_);
        return TakeOutput();
    }

    // Plaintext of the records fed since the last call; counts them too.
    std::string Receive() {
        std::string plain;
        char chunk[20000];
        int n;
        while ((n = SSL_read(ssl_, chunk, sizeof(chunk))) > 0) {
            plain.append(chunk, static_cast<size_t>(n));
            ++records_;
        }
        return plain;
    }
    int recordsReceived() const { return records_; }

    // The certificate the client presented, as its subject's common name.
    std::string ClientCommonName() const {
        X509* cert = SSL_get1_peer_certificate(ssl_);
        if (cert == nullptr) return "";
        char name[256] = {0};
        X509_NAME_get_text_by_NID(X509_get_subject_name(cert), NID_commonName, name, sizeof(name));
        X509_free(cert);
        return name;
    }

private:
    SSL_CTX* ctx_ = nullptr;
    SSL* ssl_ = nullptr;
    BIO* in_ = nullptr;
    BIO* out_ = nullptr;
    bool failed_ = false;
    int records_ = 0;
};

}  // namespace testsupport
