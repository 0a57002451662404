// SecurityContext.cpp - the token-stepped TLS client over OpenSSL memory BIOs
//
// See SecurityContext.h
#include "platform/SecurityContext.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

struct platform::CertContext {
    X509* cert = nullptr;
    EVP_PKEY* key = nullptr;
    std::vector<X509*> chain;  // further certificates of the file, in order
};

struct platform::CertStore {
    struct Entry {
        CertContext context;
        CertChainContext chain{nullptr};
    };
    std::vector<std::unique_ptr<Entry>> entries;
};

namespace platform {
namespace {

constexpr uintptr_t kCredentialKind = 0x43524544;  // tags a handle as credentials
constexpr uintptr_t kContextKind = 0x43545854;     // tags a handle as a context
constexpr uint32_t kRecordHeader = 5;
constexpr uint32_t kMaxPlaintext = 16384;
constexpr uint32_t kMaxRecordBody = kMaxPlaintext + 2048;  // the protocol's ciphertext limit

struct Credential {
    SSL_CTX* ctx = nullptr;
    X509* cert = nullptr;
    EVP_PKEY* key = nullptr;
};

struct Context {
    SSL* ssl = nullptr;
    BIO* in = nullptr;   // records from the server, fed one whole record at a time
    BIO* out = nullptr;  // bytes the library wants sent
    Credential* credential = nullptr;
    bool certificateAsked = false;  // the first request was answered with INCOMPLETE_CREDENTIALS
    size_t resumeOffset = 0;        // input bytes consumed before that answer
    std::vector<std::vector<uint8_t>> issuerDer;
    std::vector<CertNameBlob> issuerBlobs;
};

// --- handles -----------------------------------------------------------------

SecHandle MakeHandle(void* object, uintptr_t kind) {
    return SecHandle{reinterpret_cast<uintptr_t>(object), kind};
}

template <typename T>
T* FromHandle(const SecHandle* handle, uintptr_t kind) {
    if (handle == nullptr || !SecIsValidHandle(*handle) || handle->dwUpper != kind) return nullptr;
    return reinterpret_cast<T*>(handle->dwLower);
}

// --- records -----------------------------------------------------------------

// Length of the whole record at the front of `data`, or 0 when it is not all there.
size_t WholeRecordLength(const uint8_t* data, size_t length) {
    if (length < kRecordHeader) return 0;
    const size_t record = kRecordHeader + ((size_t(data[3]) << 8) | data[4]);
    return record <= length ? record : 0;
}

size_t DeclaredRecordBody(const uint8_t* data) { return (size_t(data[3]) << 8) | data[4]; }

SecBuffer* FindBuffer(SecBufferDesc* desc, uint32_t type) {
    if (desc == nullptr) return nullptr;
    for (uint32_t i = 0; i < desc->cBuffers; ++i)
        if (desc->pBuffers[i].BufferType == type) return &desc->pBuffers[i];
    return nullptr;
}

// Moves everything the library wants sent into a newly allocated token.
void DrainOutputToToken(Context& c, SecBuffer* token) {
    if (token == nullptr) return;
    token->cbBuffer = 0;
    token->pvBuffer = nullptr;
    const size_t pending = BIO_ctrl_pending(c.out);
    if (pending == 0) return;
    void* bytes = std::malloc(pending);
    if (bytes == nullptr) return;
    const int read = BIO_read(c.out, bytes, static_cast<int>(pending));
    token->pvBuffer = bytes;
    token->cbBuffer = read > 0 ? static_cast<uint32_t>(read) : 0;
}

// --- client certificates -----------------------------------------------------

// Called by the library when the server asks for a certificate. The first time
// without one in the credentials the handshake is suspended so that the caller
// can look in its store; asked again, it goes on without.
int ClientCertificateCallback(SSL* ssl, X509** cert, EVP_PKEY** key) {
    Context* c = static_cast<Context*>(SSL_get_app_data(ssl));
    if (c == nullptr) return 0;
    const Credential* cr = c->credential;
    if (cr != nullptr && cr->cert != nullptr && cr->key != nullptr) {
        X509_up_ref(cr->cert);
        EVP_PKEY_up_ref(cr->key);
        *cert = cr->cert;
        *key = cr->key;
        return 1;
    }
    if (c->certificateAsked) return 0;
    c->certificateAsked = true;
    return -1;
}

void CollectIssuers(Context& c) {
    c.issuerDer.clear();
    c.issuerBlobs.clear();
    const STACK_OF(X509_NAME)* names = SSL_get0_peer_CA_list(c.ssl);
    for (int i = 0; i < sk_X509_NAME_num(names); ++i) {
        unsigned char* der = nullptr;
        const int length = i2d_X509_NAME(sk_X509_NAME_value(names, i), &der);
        if (length <= 0) continue;
        c.issuerDer.emplace_back(der, der + length);
        OPENSSL_free(der);
    }
    for (const auto& der : c.issuerDer)
        c.issuerBlobs.push_back(CertNameBlob{static_cast<uint32_t>(der.size()), der.data()});
}

// --- the handshake -----------------------------------------------------------

bool IsAddressLiteral(const char* text) {
    ASN1_OCTET_STRING* address = a2i_IPADDRESS(text);
    ASN1_OCTET_STRING_free(address);
    ERR_clear_error();
    return address != nullptr;
}

SECURITY_STATUS StartContext(Credential* cr, const char* target, CtxtHandle* newContext,
                             SecBuffer* token) {
    auto c = std::make_unique<Context>();
    c->credential = cr;
    c->ssl = SSL_new(cr->ctx);
    c->in = BIO_new(BIO_s_mem());
    c->out = BIO_new(BIO_s_mem());
    if (c->ssl == nullptr || c->in == nullptr || c->out == nullptr) {
        BIO_free(c->in);
        BIO_free(c->out);
        SSL_free(c->ssl);
        return SEC_E_INSUFFICIENT_MEMORY;
    }
    SSL_set_bio(c->ssl, c->in, c->out);
    SSL_set_app_data(c->ssl, c.get());
    SSL_set_connect_state(c->ssl);
    // A server name is a host name; an address literal is not sent as one.
    if (target != nullptr && *target != '\0' && !IsAddressLiteral(target))
        SSL_set_tlsext_host_name(c->ssl, target);
    const int rc = SSL_do_handshake(c->ssl);
    DrainOutputToToken(*c, token);
    if (rc != 1 && SSL_get_error(c->ssl, rc) != SSL_ERROR_WANT_READ) {
        FreeContextBuffer(token->pvBuffer);
        token->pvBuffer = nullptr;
        token->cbBuffer = 0;
        SSL_free(c->ssl);
        return SEC_E_INTERNAL_ERROR;
    }
    *newContext = MakeHandle(c.release(), kContextKind);
    return SEC_I_CONTINUE_NEEDED;
}

enum class StepOutcome { NeedMore, Done, NeedCertificate, Failed };

StepOutcome HandshakeOutcome(Context& c, int rc) {
    if (rc == 1) return StepOutcome::Done;
    switch (SSL_get_error(c.ssl, rc)) {
    case SSL_ERROR_WANT_READ: return StepOutcome::NeedMore;
    case SSL_ERROR_WANT_X509_LOOKUP: return StepOutcome::NeedCertificate;
    default: return StepOutcome::Failed;
    }
}

// Feeds whole records one by one until the handshake is done, wants more, or
// asks for a certificate; `consumed` counts the bytes taken from `data`.
StepOutcome FeedHandshake(Context& c, const uint8_t* data, size_t length, size_t& consumed) {
    // First let the library act without input: a resumed certificate request
    // or a renegotiation it started may have bytes to write.
    StepOutcome outcome = StepOutcome::Done;
    // A key update the server asked for is answered here, not by the next
    // record written, which has room for one record only.
    if (!SSL_in_init(c.ssl) && SSL_get_key_update_type(c.ssl) != SSL_KEY_UPDATE_NONE)
        SSL_key_update(c.ssl, SSL_get_key_update_type(c.ssl));
    if (SSL_in_init(c.ssl)) outcome = HandshakeOutcome(c, SSL_do_handshake(c.ssl));
    while (outcome == StepOutcome::NeedMore) {
        const size_t record = WholeRecordLength(data + consumed, length - consumed);
        if (record == 0) break;
        BIO_write(c.in, data + consumed, static_cast<int>(record));
        consumed += record;
        outcome = HandshakeOutcome(c, SSL_do_handshake(c.ssl));
    }
    return outcome;
}

void SetExtra(SecBufferDesc* input, size_t unconsumed) {
    if (input == nullptr || input->cBuffers < 2) return;
    SecBuffer& second = input->pBuffers[1];
    second.BufferType = unconsumed > 0 ? SECBUFFER_EXTRA : SECBUFFER_EMPTY;
    second.cbBuffer = static_cast<uint32_t>(unconsumed);
    second.pvBuffer = nullptr;
}

SECURITY_STATUS ContinueContext(Context& c, SecBufferDesc* input, SecBuffer* token,
                                uint32_t* attributes) {
    SecBuffer* in = input != nullptr && input->cBuffers > 0 ? &input->pBuffers[0] : nullptr;
    const uint8_t* data = in != nullptr ? static_cast<const uint8_t*>(in->pvBuffer) : nullptr;
    const size_t length = data != nullptr ? in->cbBuffer : 0;
    size_t consumed = std::min(c.resumeOffset, length);
    c.resumeOffset = 0;
    const size_t before = consumed;

    const StepOutcome outcome = FeedHandshake(c, data, length, consumed);
    DrainOutputToToken(c, token);
    switch (outcome) {
    case StepOutcome::Failed:
        if (token->cbBuffer > 0 && attributes != nullptr) *attributes |= ISC_RET_EXTENDED_ERROR;
        return SEC_E_ILLEGAL_MESSAGE;
    case StepOutcome::NeedCertificate:
        CollectIssuers(c);
        c.resumeOffset = consumed;  // the same input comes again
        return SEC_I_INCOMPLETE_CREDENTIALS;
    case StepOutcome::Done:
        SetExtra(input, length - consumed);
        return SEC_E_OK;
    case StepOutcome::NeedMore:
        break;
    }
    if (consumed == before && token->cbBuffer == 0) return SEC_E_INCOMPLETE_MESSAGE;
    SetExtra(input, length - consumed);
    return SEC_I_CONTINUE_NEEDED;
}

// --- sizes and report --------------------------------------------------------

void FillStreamSizes(const Context& c, SecPkgContext_StreamSizes& sizes) {
    const SSL_CIPHER* cipher = SSL_get_current_cipher(c.ssl);
    const bool aead = cipher != nullptr && SSL_CIPHER_is_aead(cipher);
    sizes.cbHeader = kRecordHeader;
    // Room behind the data for the largest expansion of a record: nonce and tag
    // of an AEAD cipher, or IV, MAC and padding of a block cipher.
    sizes.cbTrailer = aead ? 24 : 16 + EVP_MAX_MD_SIZE + 256;
    sizes.cbMaximumMessage = kMaxPlaintext;
    sizes.cBuffers = 4;
    sizes.cbBlockSize = aead ? 1 : 16;
}

uint32_t HashNid(const SSL_CIPHER* cipher, uint32_t& strength) {
    const EVP_MD* md = SSL_CIPHER_get_handshake_digest(cipher);
    int nid = SSL_CIPHER_get_digest_nid(cipher);
    if (nid == NID_undef && md != nullptr) nid = EVP_MD_get_type(md);
    const EVP_MD* named = nid != NID_undef ? EVP_get_digestbynid(nid) : nullptr;
    strength = named != nullptr ? static_cast<uint32_t>(EVP_MD_get_size(named) * 8) : 0;
    return static_cast<uint32_t>(nid);
}

void FillConnectionInfo(const Context& c, SecPkgContext_ConnectionInfo& info) {
    const SSL_CIPHER* cipher = SSL_get_current_cipher(c.ssl);
    std::memset(&info, 0, sizeof(info));
    info.dwProtocol = static_cast<uint32_t>(SSL_version(c.ssl));
    if (cipher == nullptr) return;
    info.aiCipher = static_cast<uint32_t>(SSL_CIPHER_get_cipher_nid(cipher));
    info.dwCipherStrength = static_cast<uint32_t>(SSL_CIPHER_get_bits(cipher, nullptr));
    info.aiHash = HashNid(cipher, info.dwHashStrength);
    info.aiExch = static_cast<uint32_t>(SSL_CIPHER_get_kx_nid(cipher));
    EVP_PKEY* key = nullptr;
    if (SSL_get_peer_tmp_key(c.ssl, &key) == 1 && key != nullptr) {
        info.dwExchStrength = static_cast<uint32_t>(EVP_PKEY_get_bits(key));
        EVP_PKEY_free(key);
    }
}

// --- the store ---------------------------------------------------------------

int RefusePassword(char*, int, int, void*) { return -1; }  // never prompt on a terminal

std::string ReadWholeFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::vector<X509*> ReadCertificates(const std::string& pem) {
    std::vector<X509*> certs;
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    while (X509* cert = PEM_read_bio_X509(bio, nullptr, RefusePassword, nullptr))
        certs.push_back(cert);
    BIO_free(bio);
    ERR_clear_error();  // the end of the file reads as an error
    return certs;
}

EVP_PKEY* ReadKey(const std::string& pem) {
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    EVP_PKEY* key = PEM_read_bio_PrivateKey(bio, nullptr, RefusePassword, nullptr);
    BIO_free(bio);
    ERR_clear_error();
    return key;
}

void FreeCertContext(CertContext& cert) {
    X509_free(cert.cert);
    EVP_PKEY_free(cert.key);
    for (X509* extra : cert.chain) X509_free(extra);
    cert = CertContext();
}

// One pair of the store, or none when the file holds no usable pair.
std::unique_ptr<CertStore::Entry> LoadPair(const std::filesystem::path& path) {
    const std::string pem = ReadWholeFile(path);
    std::vector<X509*> certs = ReadCertificates(pem);
    EVP_PKEY* key = ReadKey(pem);
    if (key == nullptr) {
        std::filesystem::path keyPath = path;
        key = ReadKey(ReadWholeFile(keyPath.replace_extension(".key")));
    }
    auto entry = std::make_unique<CertStore::Entry>();
    if (!certs.empty()) entry->context.cert = certs.front();
    entry->context.key = key;
    entry->context.chain.assign(certs.size() > 1 ? certs.begin() + 1 : certs.end(), certs.end());
    if (certs.empty() || key == nullptr || X509_check_private_key(certs.front(), key) != 1) {
        ERR_clear_error();
        FreeCertContext(entry->context);
        return nullptr;
    }
    entry->chain.firstCertificate = &entry->context;
    return entry;
}

bool IsIssuedByOneOf(const CertContext& cert, const CERT_CHAIN_FIND_BY_ISSUER_PARA* para) {
    if (para == nullptr || para->cIssuer == 0) return true;
    std::vector<X509*> path{cert.cert};
    path.insert(path.end(), cert.chain.begin(), cert.chain.end());
    for (X509* link : path) {
        unsigned char* der = nullptr;
        const int length = i2d_X509_NAME(X509_get_issuer_name(link), &der);
        bool found = false;
        for (uint32_t i = 0; i < para->cIssuer && length > 0 && !found; ++i)
            found = para->rgIssuer[i].cbData == static_cast<uint32_t>(length) &&
                    std::memcmp(para->rgIssuer[i].pbData, der, size_t(length)) == 0;
        OPENSSL_free(der);
        if (found) return true;
    }
    return false;
}

// A certificate without extended key usage serves any purpose.
bool AllowsClientAuthentication(const CertContext& cert, const CERT_CHAIN_FIND_BY_ISSUER_PARA* para) {
    if (para == nullptr || para->pszUsageIdentifier == nullptr ||
        std::strcmp(para->pszUsageIdentifier, kClientAuthUsage) != 0)
        return true;
    if ((X509_get_extension_flags(cert.cert) & EXFLAG_XKUSAGE) == 0) return true;
    return (X509_get_extended_key_usage(cert.cert) & XKU_SSL_CLIENT) != 0;
}

}  // namespace

// --- credentials -------------------------------------------------------------

SECURITY_STATUS AcquireCredentialsHandle(uint32_t credentialUse, const SCHANNEL_CRED* cred,
                                         CredHandle* out) {
    if (out == nullptr) return SEC_E_INTERNAL_ERROR;
    *out = kNoSecHandle;
    if (credentialUse != SECPKG_CRED_OUTBOUND) return SEC_E_NO_CREDENTIALS;
    auto cr = std::make_unique<Credential>();
    cr->ctx = SSL_CTX_new(TLS_client_method());
    if (cr->ctx == nullptr) return SEC_E_INSUFFICIENT_MEMORY;
    // The server is never verified; trust is not this client's business.
    SSL_CTX_set_verify(cr->ctx, SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_options(cr->ctx, SSL_OP_DONT_INSERT_EMPTY_FRAGMENTS);
    SSL_CTX_set_client_cert_cb(cr->ctx, ClientCertificateCallback);
    if (cred != nullptr && cred->cCreds > 0 && cred->paCred != nullptr && cred->paCred[0] != nullptr) {
        const CertContext* cert = cred->paCred[0];
        X509_up_ref(cert->cert);
        EVP_PKEY_up_ref(cert->key);
        cr->cert = cert->cert;
        cr->key = cert->key;
    }
    *out = MakeHandle(cr.release(), kCredentialKind);
    return SEC_E_OK;
}

SECURITY_STATUS FreeCredentialsHandle(CredHandle* cred) {
    Credential* cr = FromHandle<Credential>(cred, kCredentialKind);
    if (cr == nullptr) return SEC_E_INVALID_HANDLE;
    SSL_CTX_free(cr->ctx);
    X509_free(cr->cert);
    EVP_PKEY_free(cr->key);
    delete cr;
    *cred = kNoSecHandle;
    return SEC_E_OK;
}

// --- context -----------------------------------------------------------------

SECURITY_STATUS InitializeSecurityContext(CredHandle* cred, CtxtHandle* context,
                                          const char* target, uint32_t /*contextReq*/,
                                          uint32_t /*targetDataRep*/, SecBufferDesc* input,
                                          CtxtHandle* newContext, SecBufferDesc* output,
                                          uint32_t* contextAttr) {
    if (contextAttr != nullptr) *contextAttr = 0;
    SecBuffer* token = FindBuffer(output, SECBUFFER_TOKEN);
    if (token == nullptr) return SEC_E_INTERNAL_ERROR;
    token->cbBuffer = 0;
    token->pvBuffer = nullptr;
    Credential* cr = FromHandle<Credential>(cred, kCredentialKind);
    if (cr == nullptr) return SEC_E_INVALID_HANDLE;
    Context* c = FromHandle<Context>(context, kContextKind);
    if (c == nullptr) {
        if (newContext == nullptr) return SEC_E_INTERNAL_ERROR;
        return StartContext(cr, target, newContext, token);
    }
    c->credential = cr;
    if (newContext != nullptr && newContext != context) *newContext = *context;
    return ContinueContext(*c, input, token, contextAttr);
}

SECURITY_STATUS FreeContextBuffer(void* buffer) {
    std::free(buffer);
    return SEC_E_OK;
}

SECURITY_STATUS DeleteSecurityContext(CtxtHandle* context) {
    Context* c = FromHandle<Context>(context, kContextKind);
    if (c == nullptr) return SEC_E_INVALID_HANDLE;
    SSL_free(c->ssl);  // frees both BIOs
    delete c;
    *context = kNoSecHandle;
    return SEC_E_OK;
}

SECURITY_STATUS QueryContextAttributes(CtxtHandle* context, uint32_t attribute, void* buffer) {
    Context* c = FromHandle<Context>(context, kContextKind);
    if (c == nullptr || buffer == nullptr) return SEC_E_INVALID_HANDLE;
    switch (attribute) {
    case SECPKG_ATTR_STREAM_SIZES:
        if (!SSL_is_init_finished(c->ssl)) return SEC_E_INVALID_HANDLE;
        FillStreamSizes(*c, *static_cast<SecPkgContext_StreamSizes*>(buffer));
        return SEC_E_OK;
    case SECPKG_ATTR_CONNECTION_INFO:
        if (!SSL_is_init_finished(c->ssl)) return SEC_E_INVALID_HANDLE;
        FillConnectionInfo(*c, *static_cast<SecPkgContext_ConnectionInfo*>(buffer));
        return SEC_E_OK;
    case SECPKG_ATTR_ISSUER_LIST_EX: {
        if (!c->certificateAsked) return SEC_E_INVALID_HANDLE;
        auto* list = static_cast<SecPkgContext_IssuerListInfoEx*>(buffer);
        list->cIssuers = static_cast<uint32_t>(c->issuerBlobs.size());
        list->aIssuers = c->issuerBlobs.empty() ? nullptr : c->issuerBlobs.data();
        return SEC_E_OK;
    }
    default:
        return SEC_E_INTERNAL_ERROR;
    }
}

// --- records -----------------------------------------------------------------

SECURITY_STATUS EncryptMessage(CtxtHandle* context, uint32_t /*qop*/, SecBufferDesc* message,
                               uint32_t /*sequence*/) {
    Context* c = FromHandle<Context>(context, kContextKind);
    if (c == nullptr || !SSL_is_init_finished(c->ssl)) return SEC_E_INVALID_HANDLE;
    SecBuffer* header = FindBuffer(message, SECBUFFER_STREAM_HEADER);
    SecBuffer* data = FindBuffer(message, SECBUFFER_DATA);
    SecBuffer* trailer = FindBuffer(message, SECBUFFER_STREAM_TRAILER);
    if (header == nullptr || data == nullptr || trailer == nullptr) return SEC_E_INTERNAL_ERROR;
    if (data->cbBuffer > kMaxPlaintext) return SEC_E_BUFFER_TOO_SMALL;
    if (data->cbBuffer > 0 &&
        SSL_write(c->ssl, data->pvBuffer, static_cast<int>(data->cbBuffer)) != int(data->cbBuffer))
        return SEC_E_INTERNAL_ERROR;
    const size_t record = BIO_ctrl_pending(c->out);
    const size_t room = size_t(header->cbBuffer) + data->cbBuffer + trailer->cbBuffer;
    if (record > room || record < size_t(header->cbBuffer) + data->cbBuffer) {
        (void)BIO_reset(c->out);
        return SEC_E_BUFFER_TOO_SMALL;
    }
    std::vector<uint8_t> bytes(record);
    BIO_read(c->out, bytes.data(), static_cast<int>(record));
    // Header, data and trailer take the record in turn; in the usual layout
    // they are contiguous and this writes the record in one piece.
    const size_t tail = record - header->cbBuffer - data->cbBuffer;
    std::memcpy(header->pvBuffer, bytes.data(), header->cbBuffer);
    std::memcpy(data->pvBuffer, bytes.data() + header->cbBuffer, data->cbBuffer);
    std::memcpy(trailer->pvBuffer, bytes.data() + header->cbBuffer + data->cbBuffer, tail);
    trailer->cbBuffer = static_cast<uint32_t>(tail);
    return SEC_E_OK;
}

SECURITY_STATUS DecryptMessage(CtxtHandle* context, SecBufferDesc* message, uint32_t /*sequence*/,
                               uint32_t* qop) {
    if (qop != nullptr) *qop = 0;
    Context* c = FromHandle<Context>(context, kContextKind);
    if (c == nullptr || message == nullptr || message->cBuffers < 4) return SEC_E_INVALID_HANDLE;
    SecBuffer* buffers = message->pBuffers;
    uint8_t* data = static_cast<uint8_t*>(buffers[0].pvBuffer);
    const size_t length = buffers[0].BufferType == SECBUFFER_DATA && data != nullptr ? buffers[0].cbBuffer : 0;
    if (length >= kRecordHeader && DeclaredRecordBody(data) > kMaxRecordBody) return SEC_E_DECRYPT_FAILURE;
    const size_t record = WholeRecordLength(data, length);
    if (record == 0) return SEC_E_INCOMPLETE_MESSAGE;

    BIO_write(c->in, data, static_cast<int>(record));
    std::vector<uint8_t> plain(kMaxRecordBody);
    const int got = SSL_read(c->ssl, plain.data(), static_cast<int>(plain.size()));
    size_t plainLength = 0;
    SECURITY_STATUS status = SEC_E_OK;
    if (got > 0) {
        plainLength = static_cast<size_t>(got);
    } else {
        const int error = SSL_get_error(c->ssl, got);
        if (error == SSL_ERROR_ZERO_RETURN) status = SEC_I_CONTEXT_EXPIRED;
        else if (error != SSL_ERROR_WANT_READ) return SEC_E_DECRYPT_FAILURE;
    }
    std::memcpy(data + kRecordHeader, plain.data(), plainLength);
    buffers[0] = SecBuffer{kRecordHeader, SECBUFFER_STREAM_HEADER, data};
    buffers[1] = SecBuffer{static_cast<uint32_t>(plainLength), SECBUFFER_DATA, data + kRecordHeader};
    buffers[2] = SecBuffer{static_cast<uint32_t>(record - kRecordHeader - plainLength),
                           SECBUFFER_STREAM_TRAILER, data + kRecordHeader + plainLength};
    buffers[3] = record < length
                     ? SecBuffer{static_cast<uint32_t>(length - record), SECBUFFER_EXTRA, data + record}
                     : SecBuffer{0, SECBUFFER_EMPTY, nullptr};
    if (status == SEC_E_OK && (SSL_in_init(c->ssl) || BIO_ctrl_pending(c->out) > 0 ||
                               SSL_get_key_update_type(c->ssl) != SSL_KEY_UPDATE_NONE))
        status = SEC_I_RENEGOTIATE;
    return status;
}

// --- the store ---------------------------------------------------------------

CertStore* CertOpenSystemStore(const char* /*name*/) {
    auto store = std::make_unique<CertStore>();
    const char* folder = std::getenv("TELMORAQ_CERT_STORE");
    if (folder == nullptr || *folder == '\0') return store.release();
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
        if (item.path().extension() == ".pem" && item.is_regular_file(error)) files.push_back(item.path());
    }
    if (error) return nullptr;
    std::sort(files.begin(), files.end());
    for (const auto& file : files)
        if (auto entry = LoadPair(file)) store->entries.push_back(std::move(entry));
    return store.release();
}

const CertChainContext* CertFindChainInStore(CertStore* store, uint32_t /*encoding*/, uint32_t /*flags*/,
                                             uint32_t findType, const void* findPara,
                                             const CertChainContext* previous) {
    if (store == nullptr || findType != CERT_CHAIN_FIND_BY_ISSUER) return nullptr;
    const auto* para = static_cast<const CERT_CHAIN_FIND_BY_ISSUER_PARA*>(findPara);
    size_t next = 0;
    if (previous != nullptr) {
        while (next < store->entries.size() && &store->entries[next]->chain != previous) ++next;
        ++next;
    }
    for (; next < store->entries.size(); ++next) {
        const CertStore::Entry& entry = *store->entries[next];
        if (IsIssuedByOneOf(entry.context, para) && AllowsClientAuthentication(entry.context, para))
            return &entry.chain;
    }
    return nullptr;
}

void CertCloseStore(CertStore* store) {
    if (store == nullptr) return;
    for (auto& entry : store->entries) FreeCertContext(entry->context);
    delete store;
}

std::string CertGetNameString(const CertContext* cert) {
    if (cert == nullptr || cert->cert == nullptr) return "";
    char name[256] = {0};
    if (X509_NAME_get_text_by_NID(X509_get_subject_name(cert->cert), NID_commonName, name, sizeof(name)) < 0)
        return "";
    return name;
}

}  // namespace platform
