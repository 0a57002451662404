// NvSecureProtocol.cpp - TLS client channel over the TCP socket of its base class
//
// See NvSecureProtocol.h
#include "smtp/NvSecureProtocol.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/NvcTimeout.h"
#include "platform/Clock.h"
#include "smtp/ByteSource.h"

using namespace platform;

namespace {

constexpr uint32_t kContextRequest = ISC_REQ_SEQUENCE_DETECT | ISC_REQ_REPLAY_DETECT |
                                     ISC_REQ_CONFIDENTIALITY | ISC_REQ_ALLOCATE_MEMORY |
                                     ISC_REQ_EXTENDED_ERROR | ISC_REQ_STREAM;  // 0xC11C
constexpr uint32_t kHandshakeInputSize = 10240;
constexpr uint32_t kNoLimit = 0xFFFFFFFFu;
constexpr uint32_t kStallLimitMs = 3000;

bool KeepsHandshakeGoing(SECURITY_STATUS status) {
    return status == SEC_I_CONTINUE_NEEDED || status == SEC_E_INCOMPLETE_MESSAGE ||
           status == SEC_I_INCOMPLETE_CREDENTIALS;
}

struct NamedValue {
    uint32_t value;
    const char* name;
};

constexpr NamedValue kProtocols[] = {{0x80, "TLS1"}, {0x20, "SS3"}, {0x02, "PCT"}, {0x08, "SSL2"}};
constexpr NamedValue kCiphers[] = {{0x6801, "RC4"}, {0x6601, "DES"}, {0x6603, "DES"},
                                   {0x660C, "DES"}, {0x6602, "RC2"}, {0x660A, "Skipjack"}};
constexpr NamedValue kHashes[] = {{0x8003, "MD5"}, {0x8004, "SHA"}};
constexpr NamedValue kExchanges[] = {
    {0x2400, "RSA"}, {0xA400, "RSA"}, {0xAA02, "DH Ephemeral"}, {0xAA04, "KEA"}};

// "\t<label>: [name]" for a known value, "\t<label>: [0x%x]" for any other.
template <size_t N>
CNvcString NamedLine(const char* label, uint32_t value, const NamedValue (&names)[N]) {
    CNvcString line;
    for (const NamedValue& named : names)
        if (named.value == value) return line.FormatShort("\t%s: [%s]", label, named.name);
    return line.FormatShort("\t%s: [0x%x]", label, value);
}

}  // namespace

CNvSecureProtocol::CNvSecureProtocol(const char* name) : CNvcTcpSocket(name) {}

CNvSecureProtocol::~CNvSecureProtocol() { SecureClose(); }

// --- handshake ---------------------------------------------------------------

int32_t CNvSecureProtocol::Handshake() {
    SecBuffer firstToken{0, SECBUFFER_TOKEN, nullptr};
    const int32_t result = HandshakeSteps(firstToken);
    FreeContextBuffer(firstToken.pvBuffer);
    if (result != 0) DeleteContext();
    return result;
}

int32_t CNvSecureProtocol::HandshakeSteps(SecBuffer& firstToken) {
    DeleteContext();  // a second handshake on one connection starts from nothing
    if (m_certStore == nullptr) m_certStore = CertOpenSystemStore("MY");
    if (m_certStore == nullptr) return -1006;
    std::memset(&m_credentialSettings, 0, sizeof(m_credentialSettings));
    m_credentialSettings.dwVersion = SCHANNEL_CRED_VERSION;
    m_credentialSettings.dwFlags = SCH_CRED_MANUAL_CRED_VALIDATION | SCH_CRED_NO_DEFAULT_CREDS;
    if (SecIsValidHandle(m_credentials)) FreeCredentialsHandle(&m_credentials);
    if (AcquireCredentialsHandle(SECPKG_CRED_OUTBOUND, &m_credentialSettings, &m_credentials) != SEC_E_OK)
        return -1003;
    const int32_t sent = SendFirstToken(firstToken);
    if (sent != 0) return sent;
    SecBuffer extra{0, SECBUFFER_EMPTY, nullptr};
    const int32_t looped = HandshakeLoop(1, extra);
    if (looped != 0) return looped;
    ReportConnection();
    const int32_t result = SetUpChannel(extra);
    std::free(extra.pvBuffer);
    return result;
}

int32_t CNvSecureProtocol::SendFirstToken(SecBuffer& token) {
    SecBufferDesc output{SECBUFFER_VERSION, 1, &token};
    uint32_t attributes = 0;
    const SECURITY_STATUS status =
        InitializeSecurityContext(&m_credentials, nullptr, m_host.GetData(), kContextRequest,
                                  SECURITY_NATIVE_DREP, nullptr, &m_context, &output, &attributes);
    if (status != SEC_I_CONTINUE_NEEDED) return -1007;
    if (token.cbBuffer == 0 || token.pvBuffer == nullptr) return 0;
    uint32_t sent = 0;
    return SendBytes(token.pvBuffer, token.cbBuffer, sent, kNoLimit, kStallLimitMs);
}

// Stream sizes, the three buffers, and the application data that came behind
// the last handshake record.
int32_t CNvSecureProtocol::SetUpChannel(SecBuffer& extra) {
    SecPkgContext_StreamSizes sizes{};
    if (QueryContextAttributes(&m_context, SECPKG_ATTR_STREAM_SIZES, &sizes) != SEC_E_OK) return -1007;
    FreeChannelBuffers();
    m_headerSize = sizes.cbHeader;
    m_trailerSize = sizes.cbTrailer;
    m_maximumMessage = sizes.cbMaximumMessage;
    m_recordBuffer = static_cast<uint8_t*>(std::malloc(m_maximumMessage));
    m_lineBuffer = static_cast<uint8_t*>(std::malloc(m_maximumMessage));
    m_sendBuffer = static_cast<uint8_t*>(std::malloc(m_maximumMessage));
    if (m_recordBuffer == nullptr || m_lineBuffer == nullptr || m_sendBuffer == nullptr) {
        FreeChannelBuffers();
        return -1008;
    }
    if (extra.pvBuffer != nullptr) {
        m_recordCount = extra.cbBuffer < m_maximumMessage ? extra.cbBuffer : m_maximumMessage;
        std::memcpy(m_recordBuffer, extra.pvBuffer, m_recordCount);
    }
    return 0;
}

// The token exchange. The socket is non-blocking, so a read that finds
// nothing gives an incomplete message and another pass; a pass that read
// nothing sleeps 1 ms, and the loop gives up after kHandshakeLimitMs.
int32_t CNvSecureProtocol::HandshakeLoop(int32_t readFirst, SecBuffer& extra) {
    extra = SecBuffer{0, SECBUFFER_EMPTY, nullptr};
    uint8_t* input = static_cast<uint8_t*>(std::malloc(kHandshakeInputSize));
    if (input == nullptr) return 0;
    CNvcTimeout bound;
    bound.Set(kHandshakeLimitMs);
    uint32_t count = 0;
    int32_t result = 0;
    SECURITY_STATUS status = SEC_I_CONTINUE_NEEDED;
    while (KeepsHandshakeGoing(status) && !bound.IsExpired()) {
        if (count == 0 || status == SEC_E_INCOMPLETE_MESSAGE) {
            if (readFirst) {
                result = ReadHandshakeInput(input, count);
                if (result != 0) break;
            } else {
                readFirst = 1;
            }
        }
        SecBuffer second{0, SECBUFFER_EMPTY, nullptr};
        status = StepContext(input, count, second, result);
        if (result != 0) break;
        if (status == SEC_E_INCOMPLETE_MESSAGE) continue;  // keep the input, fetch more
        if (status == SEC_E_OK) {
            result = HandOutExtra(input, count, second, extra);
            break;
        }
        if (status < 0) break;  // a failed handshake: Handshake fails at the stream sizes
        if (status == SEC_I_INCOMPLETE_CREDENTIALS) {
            GetClientCredentials();
            readFirst = 0;
            status = SEC_I_CONTINUE_NEEDED;
            continue;  // the same input again
        }
        count = KeepUnconsumed(input, count, second);
    }
    std::free(input);
    if (result != 0) DeleteContext();
    return result;
}

// One context call on the input; its output token is sent (also an alert
// after a failure) and freed. `sendResult` is the write's result.
SECURITY_STATUS CNvSecureProtocol::StepContext(uint8_t* input, uint32_t count, SecBuffer& second,
                                               int32_t& sendResult) {
    SecBuffer in[2] = {{count, SECBUFFER_TOKEN, input}, {0, SECBUFFER_EMPTY, nullptr}};
    SecBufferDesc inDesc{SECBUFFER_VERSION, 2, in};
    SecBuffer token{0, SECBUFFER_TOKEN, nullptr};
    SecBufferDesc outDesc{SECBUFFER_VERSION, 1, &token};
    uint32_t attributes = 0;
    const SECURITY_STATUS status = InitializeSecurityContext(
        &m_credentials, &m_context, nullptr, kContextRequest, SECURITY_NATIVE_DREP, &inDesc, &m_context,
        &outDesc, &attributes);
    second = in[1];
    const bool sendsToken = status == SEC_E_OK || status == SEC_I_CONTINUE_NEEDED ||
                            (status < 0 && (attributes & ISC_RET_EXTENDED_ERROR) != 0);
    if (sendsToken && token.cbBuffer != 0 && token.pvBuffer != nullptr) sendResult = SendToken(token);
    FreeContextBuffer(token.pvBuffer);
    return status;
}

// The bytes the package did not take move to the front; returns their number.
uint32_t CNvSecureProtocol::KeepUnconsumed(uint8_t* input, uint32_t count, const SecBuffer& second) {
    if (second.BufferType != SECBUFFER_EXTRA) return 0;
    std::memmove(input, input + count - second.cbBuffer, second.cbBuffer);
    return second.cbBuffer;
}

// More bytes for the handshake, behind those kept.
int32_t CNvSecureProtocol::ReadHandshakeInput(uint8_t* input, uint32_t& count) {
    uint32_t got = 0;
    const int32_t read = ReadBytes(input + count, kHandshakeInputSize - count, got);
    if (read == kWsaENotSock) return -1004;
    if (read != 0) return -1005;
    if (got == 0) platform::Sleep(1);
    count += got;
    return 0;
}

int32_t CNvSecureProtocol::SendToken(SecBuffer& token) {
    uint32_t sent = 0;
    const int32_t result = SendBytes(token.pvBuffer, token.cbBuffer, sent, kNoLimit, kStallLimitMs);
    FreeContextBuffer(token.pvBuffer);
    token.pvBuffer = nullptr;
    token.cbBuffer = 0;
    return result;
}

// The last bytes of the input that the handshake did not take belong to the
// application data; they go to the caller as a token of their own.
int32_t CNvSecureProtocol::HandOutExtra(const uint8_t* input, uint32_t count, const SecBuffer& second,
                                        SecBuffer& extra) {
    if (second.BufferType != SECBUFFER_EXTRA || second.cbBuffer == 0) return 0;
    void* bytes = std::malloc(second.cbBuffer);
    if (bytes == nullptr) return 1;
    std::memcpy(bytes, input + count - second.cbBuffer, second.cbBuffer);
    extra = SecBuffer{second.cbBuffer, SECBUFFER_TOKEN, bytes};
    return 0;
}

// The server asked for a certificate: the first chain of the store for one of
// its issuers becomes the credentials; with none the handshake goes on without.
void CNvSecureProtocol::GetClientCredentials() {
    SecPkgContext_IssuerListInfoEx issuers{};
    if (QueryContextAttributes(&m_context, SECPKG_ATTR_ISSUER_LIST_EX, &issuers) != SEC_E_OK) return;
    CERT_CHAIN_FIND_BY_ISSUER_PARA find{};
    find.cbSize = sizeof(find);
    find.pszUsageIdentifier = kClientAuthUsage;
    find.cIssuer = issuers.cIssuers;
    find.rgIssuer = issuers.aIssuers;
    const CertChainContext* chain = nullptr;
    while ((chain = CertFindChainInStore(m_certStore, X509_ASN_ENCODING, 0, CERT_CHAIN_FIND_BY_ISSUER, &find,
                                         chain)) != nullptr) {
        m_clientCertificate = chain->firstCertificate;
        m_credentialSettings.dwVersion = SCHANNEL_CRED_VERSION;
        m_credentialSettings.cCreds = 1;
        m_credentialSettings.paCred = &m_clientCertificate;
        CredHandle fresh = kNoSecHandle;
        if (AcquireCredentialsHandle(SECPKG_CRED_OUTBOUND, &m_credentialSettings, &fresh) != SEC_E_OK) continue;
        FreeCredentialsHandle(&m_credentials);
        m_credentials = fresh;
        return;
    }
}

void CNvSecureProtocol::ReportConnection() {
    Log(this, 1, "Secure connection details:");
    SecPkgContext_ConnectionInfo info{};
    if (QueryContextAttributes(&m_context, SECPKG_ATTR_CONNECTION_INFO, &info) != SEC_E_OK) return;
    for (const CNvcString& line : FormatConnectionReport(info)) Log(this, 1, "%s", line.GetData());
}

std::vector<CNvcString> CNvSecureProtocol::FormatConnectionReport(const SecPkgContext_ConnectionInfo& info) {
    std::vector<CNvcString> lines;
    lines.push_back(NamedLine("Protocol", info.dwProtocol, kProtocols));  // "SS3", not "SSL3": kept
    lines.push_back(NamedLine("Cipher", info.aiCipher, kCiphers));
    lines.emplace_back();
    lines.back().FormatShort("\tCipher strength: [%d]", static_cast<int>(info.dwCipherStrength));
    lines.push_back(NamedLine("Hash", info.aiHash, kHashes));
    lines.push_back(NamedLine("Key exchange", info.aiExch, kExchanges));
    lines.emplace_back();
    lines.back().FormatShort("\tKey exchange: [%d]", static_cast<int>(info.dwExchStrength));
    return lines;
}

void CNvSecureProtocol::DeleteContext() {
    if (!SecIsValidHandle(m_context)) return;
    DeleteSecurityContext(&m_context);
    m_context = kNoSecHandle;
}

// --- writing -----------------------------------------------------------------

int32_t CNvSecureProtocol::SecureSendLine(CNvcString& text) {
    if (m_sendBuffer == nullptr) return -1009;
    text.Append("\r\n");
    TextByteSource source(text.GetData());
    return SecureSendFrom(source);
}

// Each record's plaintext is filled in place in the send buffer, so records
// are as full as a record may be whatever the source.
int32_t CNvSecureProtocol::SecureSendFrom(ByteSource& source) {
    if (m_sendBuffer == nullptr) return -1009;
    const uint32_t chunkLimit = m_maximumMessage - m_trailerSize - m_headerSize;
    for (;;) {
        const uint32_t chunk = source.Fill(m_sendBuffer + m_headerSize, chunkLimit);
        if (chunk == 0) return 0;
        SecBuffer buffers[4] = {{m_headerSize, SECBUFFER_STREAM_HEADER, m_sendBuffer},
                                {chunk, SECBUFFER_DATA, m_sendBuffer + m_headerSize},
                                {m_trailerSize, SECBUFFER_STREAM_TRAILER, m_sendBuffer + m_headerSize + chunk},
                                {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc message{SECBUFFER_VERSION, 4, buffers};
        if (EncryptMessage(&m_context, 0, &message, 0) < 0) return -1010;
        // The trailer may have come back shorter: the lengths are read anew.
        const uint32_t recordLength = buffers[0].cbBuffer + buffers[1].cbBuffer + buffers[2].cbBuffer;
        uint32_t sent = 0;
        const int32_t result = SendBytes(m_sendBuffer, recordLength, sent, kNoLimit, kStallLimitMs);
        if (result != 0) return result;
    }
}

// --- reading -----------------------------------------------------------------

int32_t CNvSecureProtocol::SecureRead(void* buffer, uint32_t size, uint32_t& got) {
    got = 0;
    uint8_t* out = static_cast<uint8_t*>(buffer);
    if (m_spillCount != 0) return DeliverSpill(out, size, got);
    uint32_t came = 0;
    const int32_t read = ReadBytes(m_recordBuffer + m_recordCount, m_maximumMessage - m_recordCount, came);
    if (read == kWsaENotSock) return m_recordCount > 0 ? -1004 : 0;
    if (read != 0) return read;

    SecBuffer buffers[4] = {{m_recordCount + came, SECBUFFER_DATA, m_recordBuffer},
                            {0, SECBUFFER_EMPTY, nullptr},
                            {0, SECBUFFER_EMPTY, nullptr},
                            {0, SECBUFFER_EMPTY, nullptr}};
    SecBufferDesc message{SECBUFFER_VERSION, 4, buffers};
    const SECURITY_STATUS status = DecryptMessage(&m_context, &message, 0, nullptr);
    if (status == SEC_I_CONTEXT_EXPIRED) return 0;  // the server closed the channel
    if (status == SEC_E_INCOMPLETE_MESSAGE) {
        m_recordCount += came;
        return m_recordCount > m_maximumMessage ? -1012 : 0;
    }
    if (status != SEC_E_OK && status != SEC_I_RENEGOTIATE) return -1011;
    DeliverRecord(buffers, out, size, got);
    if (status != SEC_I_RENEGOTIATE) return 0;

    SecBuffer extra{0, SECBUFFER_EMPTY, nullptr};
    const int32_t result = HandshakeLoop(0, extra);
    if (result != 0) return result;
    if (extra.pvBuffer != nullptr) {
        m_recordCount = extra.cbBuffer < m_maximumMessage ? extra.cbBuffer : m_maximumMessage;
        std::memcpy(m_recordBuffer, extra.pvBuffer, m_recordCount);
        std::free(extra.pvBuffer);
    }
    return 0;
}

int32_t CNvSecureProtocol::DeliverSpill(uint8_t* buffer, uint32_t size, uint32_t& got) {
    got = m_spillCount < size ? m_spillCount : size;
    std::memcpy(buffer, m_spillBuffer, got);
    m_spillCount -= got;
    std::memmove(m_spillBuffer, m_spillBuffer + got, m_spillCount);
    return 0;
}

// Hands out the plaintext of a decrypted record (what does not fit goes to the
// spill buffer) and keeps the bytes of the next record.
void CNvSecureProtocol::DeliverRecord(SecBuffer* buffers, uint8_t* buffer, uint32_t size, uint32_t& got) {
    const SecBuffer* data = nullptr;
    const SecBuffer* extra = nullptr;
    for (int i = 1; i < 4; ++i) {
        if (data == nullptr && buffers[i].BufferType == SECBUFFER_DATA) data = &buffers[i];
        if (extra == nullptr && buffers[i].BufferType == SECBUFFER_EXTRA) extra = &buffers[i];
    }
    if (data != nullptr) {
        got = data->cbBuffer < size ? data->cbBuffer : size;
        std::memcpy(buffer, data->pvBuffer, got);
        const uint32_t rest = data->cbBuffer - got;
        if (rest > 0) {
            void* spill = std::realloc(m_spillBuffer, rest);
            if (spill != nullptr) {
                m_spillBuffer = static_cast<uint8_t*>(spill);
                std::memcpy(m_spillBuffer, static_cast<const uint8_t*>(data->pvBuffer) + got, rest);
                m_spillCount = rest;
            }
        }
    }
    m_recordCount = 0;
    if (extra == nullptr) return;
    std::memmove(m_recordBuffer, extra->pvBuffer, extra->cbBuffer);
    m_recordCount = extra->cbBuffer;
}

int32_t CNvSecureProtocol::SecureReadLine(CNvcString& line, uint32_t timeoutMs) {
    line.Clear();
    CNvcTimeout timer;
    timer.Set(timeoutMs);
    if (m_lineBuffer == nullptr) return -1009;
    while (!timer.IsExpired()) {
        if (TakeLine(line)) return 0;
        const uint32_t kept = m_lineCount - m_linePosition;
        std::memmove(m_lineBuffer, m_lineBuffer + m_linePosition, kept);
        uint32_t got = 0;
        const int32_t read = SecureRead(m_lineBuffer + kept, m_maximumMessage - kept, got);
        if (read != 0) return read;
        m_lineCount = kept + got;
        m_linePosition = 0;
        platform::Sleep(1);
    }
    return -1014;
}

// The next CR LF from the line position on; the line is cut at its first CR,
// then at its first LF, so a lone CR inside it ends it early (kept on purpose).
bool CNvSecureProtocol::TakeLine(CNvcString& line) {
    const uint32_t from = m_linePosition > 0 ? m_linePosition : 1;
    for (uint32_t i = from; i < m_lineCount; ++i) {
        if (m_lineBuffer[i - 1] != '\r' || m_lineBuffer[i] != '\n') continue;
        std::string text;
        for (uint32_t j = m_linePosition; j <= i; ++j)
            if (m_lineBuffer[j] != 0) text += static_cast<char>(m_lineBuffer[j]);  // a zero byte appends nothing
        const size_t cr = text.find('\r');
        if (cr != std::string::npos) text.resize(cr);
        const size_t lf = text.find('\n');
        if (lf != std::string::npos) text.resize(lf);
        line.Assign(text.c_str());
        m_linePosition = i + 1;
        return true;
    }
    return false;
}

// --- closing -----------------------------------------------------------------

int32_t CNvSecureProtocol::SecureClose() {
    TcpClose();
    m_recordCount = 0;
    m_linePosition = 0;
    m_lineCount = 0;
    m_spillCount = 0;
    if (m_certStore != nullptr) {
        CertCloseStore(m_certStore);
        m_certStore = nullptr;
        m_clientCertificate = nullptr;
    }
    DeleteContext();
    if (SecIsValidHandle(m_credentials)) {
        FreeCredentialsHandle(&m_credentials);
        m_credentials = kNoSecHandle;
    }
    FreeChannelBuffers();
    return 0;
}

void CNvSecureProtocol::FreeChannelBuffers() {
    std::free(m_recordBuffer);
    std::free(m_lineBuffer);
    std::free(m_spillBuffer);
    std::free(m_sendBuffer);
    m_recordBuffer = nullptr;
    m_lineBuffer = nullptr;
    m_spillBuffer = nullptr;
    m_sendBuffer = nullptr;
    m_recordCount = 0;
    m_lineCount = 0;
    m_linePosition = 0;
    m_spillCount = 0;
}
