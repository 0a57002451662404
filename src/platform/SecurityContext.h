// SecurityContext.h - a TLS client stepped by tokens, shaped like a security package
//
// The secure channel above this seam runs its own loops: it reads bytes, hands
// them in as an input token, sends the output token, and keeps what the package
// did not consume ("extra") for the next step. This interface gives it exactly
// that shape over a TLS library: credentials, a context stepped with input and
// output tokens, stream sizes, encryption of one record into header, data and
// trailer, and decryption of one record at a time with the rest handed back.
//
// Input:       a token may hold any bytes. Only whole records are consumed; a
//              partial record is SEC_E_INCOMPLETE_MESSAGE and nothing is taken.
// Diagnostics: SECURITY_STATUS values; negative ones are failures.
// Trust:       the server is never verified (any certificate, expired or of
//              another name, is accepted). A client certificate is offered only
//              when the server asks and the caller has put one in the credentials.
// Store "MY":  the folder named by TELMORAQ_CERT_STORE, of PEM files (*.pem) each
//              holding a certificate, optionally its chain, and its private key
//              (or the key in <name>.key beside it). Unset: an empty store.
// Known gaps:  a client certificate goes out without the rest of its chain. A
//              key update the server asks for is answered through the next
//              InitializeSecurityContext (SEC_I_RENEGOTIATE), never by a write.
// See also:    openssl/SecurityContext.cpp, smtp/NvSecureProtocol.h
#pragma once

#include <cstdint>
#include <string>

namespace platform {

using SECURITY_STATUS = int32_t;

constexpr SECURITY_STATUS SEC_E_OK = 0;
constexpr SECURITY_STATUS SEC_I_CONTINUE_NEEDED = 0x00090312;
constexpr SECURITY_STATUS SEC_I_CONTEXT_EXPIRED = 0x00090317;
constexpr SECURITY_STATUS SEC_I_INCOMPLETE_CREDENTIALS = 0x00090320;
constexpr SECURITY_STATUS SEC_I_RENEGOTIATE = 0x00090321;
constexpr SECURITY_STATUS SEC_E_INSUFFICIENT_MEMORY = static_cast<int32_t>(0x80090300u);
constexpr SECURITY_STATUS SEC_E_INVALID_HANDLE = static_cast<int32_t>(0x80090301u);
constexpr SECURITY_STATUS SEC_E_INTERNAL_ERROR = static_cast<int32_t>(0x80090304u);
constexpr SECURITY_STATUS SEC_E_NO_CREDENTIALS = static_cast<int32_t>(0x8009030Eu);
constexpr SECURITY_STATUS SEC_E_INCOMPLETE_MESSAGE = static_cast<int32_t>(0x80090318u);
constexpr SECURITY_STATUS SEC_E_BUFFER_TOO_SMALL = static_cast<int32_t>(0x80090321u);
constexpr SECURITY_STATUS SEC_E_ILLEGAL_MESSAGE = static_cast<int32_t>(0x80090326u);
constexpr SECURITY_STATUS SEC_E_DECRYPT_FAILURE = static_cast<int32_t>(0x80090330u);

// Buffer types.
constexpr uint32_t SECBUFFER_EMPTY = 0;
constexpr uint32_t SECBUFFER_DATA = 1;
constexpr uint32_t SECBUFFER_TOKEN = 2;
constexpr uint32_t SECBUFFER_EXTRA = 5;
constexpr uint32_t SECBUFFER_STREAM_TRAILER = 6;
constexpr uint32_t SECBUFFER_STREAM_HEADER = 7;
constexpr uint32_t SECBUFFER_VERSION = 0;

// Context request flags and the one returned attribute that matters.
constexpr uint32_t ISC_REQ_REPLAY_DETECT = 0x4;
constexpr uint32_t ISC_REQ_SEQUENCE_DETECT = 0x8;
constexpr uint32_t ISC_REQ_CONFIDENTIALITY = 0x10;
constexpr uint32_t ISC_REQ_ALLOCATE_MEMORY = 0x100;
constexpr uint32_t ISC_REQ_EXTENDED_ERROR = 0x4000;
constexpr uint32_t ISC_REQ_STREAM = 0x8000;
constexpr uint32_t ISC_RET_EXTENDED_ERROR = 0x4000;
constexpr uint32_t SECURITY_NATIVE_DREP = 16;

constexpr uint32_t SECPKG_CRED_OUTBOUND = 2;
constexpr uint32_t SCHANNEL_CRED_VERSION = 4;
constexpr uint32_t SCH_CRED_MANUAL_CRED_VALIDATION = 8;
constexpr uint32_t SCH_CRED_NO_DEFAULT_CREDS = 16;

// Attributes for QueryContextAttributes.
constexpr uint32_t SECPKG_ATTR_STREAM_SIZES = 4;
constexpr uint32_t SECPKG_ATTR_ISSUER_LIST_EX = 89;
constexpr uint32_t SECPKG_ATTR_CONNECTION_INFO = 90;

// A handle of two words; both ~0 means none.
struct SecHandle {
    uintptr_t dwLower;
    uintptr_t dwUpper;
};
using CredHandle = SecHandle;
using CtxtHandle = SecHandle;
constexpr SecHandle kNoSecHandle = {~uintptr_t(0), ~uintptr_t(0)};
inline bool SecIsValidHandle(const SecHandle& h) {
    return h.dwLower != ~uintptr_t(0) || h.dwUpper != ~uintptr_t(0);
}

struct SecBuffer {
    uint32_t cbBuffer;
    uint32_t BufferType;
    void* pvBuffer;
};

struct SecBufferDesc {
    uint32_t ulVersion;
    uint32_t cBuffers;
    SecBuffer* pBuffers;
};

// A certificate with its private key, as the store holds it.
struct CertContext;
// A chain found in the store; its first certificate is the one to offer.
struct CertChainContext {
    const CertContext* firstCertificate;
};
struct CertStore;

struct SCHANNEL_CRED {
    uint32_t dwVersion;
    uint32_t cCreds;
    const CertContext* const* paCred;
    uint32_t grbitEnabledProtocols;  // 0: the library's default protocols
    uint32_t dwFlags;
};

struct SecPkgContext_StreamSizes {
    uint32_t cbHeader;
    uint32_t cbTrailer;
    uint32_t cbMaximumMessage;
    uint32_t cBuffers;
    uint32_t cbBlockSize;
};

// Values are the TLS library's own: protocol version word, cipher, hash and
// key exchange identifiers, strengths in bits.
struct SecPkgContext_ConnectionInfo {
    uint32_t dwProtocol;
    uint32_t aiCipher;
    uint32_t dwCipherStrength;
    uint32_t aiHash;
    uint32_t dwHashStrength;
    uint32_t aiExch;
    uint32_t dwExchStrength;
};

// One distinguished name in its DER encoding.
struct CertNameBlob {
    uint32_t cbData;
    const uint8_t* pbData;
};

// The issuers a server named when it asked for a client certificate; valid
// until the next call on the context.
struct SecPkgContext_IssuerListInfoEx {
    const CertNameBlob* aIssuers;
    uint32_t cIssuers;
};

constexpr uint32_t X509_ASN_ENCODING = 1;
constexpr uint32_t CERT_CHAIN_FIND_BY_ISSUER = 1;
constexpr const char* kClientAuthUsage = "1.3.6.1.5.5.7.3.2";

struct CERT_CHAIN_FIND_BY_ISSUER_PARA {
    uint32_t cbSize;
    const char* pszUsageIdentifier;
    uint32_t dwKeySpec;
    uint32_t dwAcquirePrivateKeyFlags;
    uint32_t cIssuer;
    const CertNameBlob* rgIssuer;
    void* pfnFindCallback;
    void* pvFindArg;
};

// Credentials for a client; only SECPKG_CRED_OUTBOUND is supported. The first
// certificate of `cred`, if any, is the one offered when a server asks.
SECURITY_STATUS AcquireCredentialsHandle(uint32_t credentialUse, const SCHANNEL_CRED* cred,
                                         CredHandle* out);
SECURITY_STATUS FreeCredentialsHandle(CredHandle* cred);

// One step of the handshake. The first call has a null `context` and names the
// target (sent as server name unless it is an address); later calls pass the
// context and the input token, whose second buffer comes back as
// SECBUFFER_EXTRA with the count of unconsumed trailing bytes. The output
// token is allocated here and freed with FreeContextBuffer. Statuses:
// SEC_I_CONTINUE_NEEDED, SEC_E_INCOMPLETE_MESSAGE (no whole record; nothing
// consumed), SEC_I_INCOMPLETE_CREDENTIALS (the server asks for a certificate;
// call again with the same input and the credentials to use), SEC_E_OK, or a
// failure (with ISC_RET_EXTENDED_ERROR when the output carries an alert).
SECURITY_STATUS InitializeSecurityContext(CredHandle* cred, CtxtHandle* context,
                                          const char* target, uint32_t contextReq,
                                          uint32_t targetDataRep, SecBufferDesc* input,
                                          CtxtHandle* newContext, SecBufferDesc* output,
                                          uint32_t* contextAttr);
SECURITY_STATUS FreeContextBuffer(void* buffer);
SECURITY_STATUS DeleteSecurityContext(CtxtHandle* context);

SECURITY_STATUS QueryContextAttributes(CtxtHandle* context, uint32_t attribute, void* buffer);

// Encrypts the data buffer into one record laid out from the header buffer on:
// header, data and trailer are contiguous, and their lengths as left here add
// up to the record's size. The trailer may come back shorter than cbTrailer.
SECURITY_STATUS EncryptMessage(CtxtHandle* context, uint32_t qop, SecBufferDesc* message,
                               uint32_t sequence);

// Decrypts the first record of the data buffer in place: buffers come back as
// stream header, data (the plaintext, possibly empty), stream trailer and, when
// more bytes follow the record, extra. SEC_E_INCOMPLETE_MESSAGE without a
// whole record; SEC_I_CONTEXT_EXPIRED after the server's close notification;
// SEC_I_RENEGOTIATE when the library has handshake bytes to send, which the
// next InitializeSecurityContext hands out.
SECURITY_STATUS DecryptMessage(CtxtHandle* context, SecBufferDesc* message, uint32_t sequence,
                               uint32_t* qop);

// The store "MY" (see the head comment); null when its folder cannot be read.
CertStore* CertOpenSystemStore(const char* name);
// The next chain after `previous` (null: the first) whose certificate suits
// the usage and was issued by one of the issuers (none given: any), or null.
const CertChainContext* CertFindChainInStore(CertStore* store, uint32_t encoding, uint32_t flags,
                                             uint32_t findType, const void* findPara,
                                             const CertChainContext* previous);
void CertCloseStore(CertStore* store);
// The common name of a certificate's subject; "" without one.
std::string CertGetNameString(const CertContext* cert);

}  // namespace platform
