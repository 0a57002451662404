// NvSmtp.cpp - the SMTP client: one session, one transaction, AUTH PLAIN/LOGIN/CRAM-MD5
//
// See NvSmtp.h
#include "smtp/NvSmtp.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "foundation/NvcBase64.h"
#include "mail/NvMail.h"
#include "platform/Clock.h"
#include "platform/HostInfo.h"
#include "smtp/DotStuffer.h"
#include "smtp/Md5.h"

namespace {

constexpr int kTraceLevel = 6;
constexpr int kReplyTraceLevel = 3;
constexpr uint32_t kSendIdleMs = 3000;
constexpr size_t kComputerNameSize = 256;
constexpr size_t kPlainBlockSize = 2048;
constexpr size_t kPadSize = 64;
// A server streaming continuation lines without end must not hold the worker
// or its memory for ever.
constexpr size_t kMaxReplyText = 1u << 20;

bool InRange200To399(int32_t code) { return code >= 200 && code <= 399; }

// Leading decimal digits of the text before its first blank; none give 0.
// Wraps like 32-bit arithmetic rather than overflowing on absurd numbers.
int32_t LeadingNumber(const char* text) {
    uint32_t value = 0;
    for (const char* p = text; *p >= '0' && *p <= '9'; ++p) value = value * 10u + static_cast<uint32_t>(*p - '0');
    return static_cast<int32_t>(value);
}

bool EndsReply(const CNvcString& line) {
    const size_t length = line.GetLength();
    return length == 3 || (length >= 4 && line.GetData()[3] == ' ');
}

// The local computer's name as a 256-character buffer would hold it.
std::string LocalComputerName() {
    std::string name = platform::ComputerName();
    if (name.size() >= kComputerNameSize) name.resize(kComputerNameSize - 1);
    return name;
}

}  // namespace

CNvSmtp::CNvSmtp() : CNvSecureProtocol("CNvSmtp") {}

// No QUIT here: the worker has said it before.
CNvSmtp::~CNvSmtp() { SecureClose(); }

uint32_t CNvSmtp::EffectiveTimeout(uint32_t timeoutMs) const {
    return timeoutMs == 0 ? m_commandTimeout : timeoutMs;
}

int32_t CNvSmtp::ReadReplyLine(CNvcString& line, uint32_t timeoutMs) {
    if (m_secure) return SecureReadLine(line, timeoutMs);
    return ReadLine(line, timeoutMs, timeoutMs);
}

int32_t CNvSmtp::ReadReply(uint32_t timeoutMs) {
    const uint32_t timeout = EffectiveTimeout(timeoutMs);
    m_lastResponse.Clear();
    m_lastCode = 0;
    CNvcString line;
    int32_t read = 0;
    for (;;) {
        read = ReadReplyLine(line, timeout);
        if (read != 0) break;
        m_lastResponse.Append(line).Append(' ');
        if (EndsReply(line)) break;
        if (m_lastResponse.GetLength() > kMaxReplyText) {
            line.Clear();
            read = kNoReplyCode;
            break;
        }
        platform::Sleep(1);
    }
    LogSized(this, kReplyTraceLevel, m_lastResponse.GetLength() + 256, "Response: [%s]",
             m_lastResponse.GetData());
    // A read may fail with a whole line in hand (a timer ran out as it came);
    // its code still counts, so that case reads as a cut reply, -2004.
    m_lastCode = LeadingNumber(line.GetData());
    if (m_lastCode == 0) return kNoReplyCode;
    if (read == 0) return 0;
    if (read == -2 || read == -3) return kNoCompleteReply;
    return kNoReplyCode;
}

int32_t CNvSmtp::WriteCommand(CNvcString& copy) {
    if (m_secure) return SecureSendLine(copy) == 0 ? 0 : kSecureWriteFailed;
    return SendLine(copy, m_commandTimeout, kSendIdleMs) == 0 ? 0 : kPlainWriteFailed;
}

// The message text is multi-line and stays out of the trace; credentials go
// in as the Base64 that was sent.
void CNvSmtp::TraceCommand(CNvcString& copy) {
    copy.RemoveSuffix("\r\n");
    if (copy.Contains("\r\n", 1)) {
        Log(this, kTraceLevel, "Command: [<Message data>]");
        return;
    }
    Log(this, kTraceLevel, "Command: [%s]", copy.GetData());
}

int32_t CNvSmtp::SendCommand(const char* text, uint32_t timeoutMs) {
    CNvcString copy(text);
    const uint32_t timeout = EffectiveTimeout(timeoutMs);
    if (!IsConnected()) return kNotConnected;
    const int32_t written = WriteCommand(copy);
    if (written != 0) return written;
    TraceCommand(copy);
    return ReadReply(timeout) == 0 ? 0 : kNoCompleteReply;
}

// Each later word overrides the one before: PLAIN over CRAM-MD5 over LOGIN.
void CNvSmtp::PickAuthMethod() {
    if (m_lastResponse.Contains("LOGIN", 0)) m_authMethod = kAuthLogin;
    if (m_lastResponse.Contains("CRAM-MD5", 0)) m_authMethod = kAuthCramMd5;
    if (m_lastResponse.Contains("PLAIN", 0)) m_authMethod = kAuthPlain;
}

int32_t CNvSmtp::Hello() {
    const std::string name = LocalComputerName();
    const int32_t ehlo = SendCommand(("EHLO " + name).c_str(), 0);
    if (ehlo != 0) return ehlo;
    if (m_lastCode == 250) {
        PickAuthMethod();
        return 0;
    }
    const int32_t helo = SendCommand(("HELO " + name).c_str(), 0);
    if (helo != 0) return helo;
    if (m_lastCode != 250) return kHelloRefused;
    m_authMethod = kAuthPlain;
    return 0;
}

int32_t CNvSmtp::FailConnect(const char* traceLine, int32_t result) {
    if (traceLine != nullptr) Log(this, kTraceLevel, "%s", traceLine);
    Quit();
    return result;
}

// A refused STARTTLS leaves the session in the clear without a word.
int32_t CNvSmtp::StartTlsIfOffered() {
    if (m_startTlsAllowed == 0 || m_secure != 0) return 0;
    if (!m_lastResponse.Contains(" 250-STARTTLS", 0)) return 0;
    SendCommand("STARTTLS", 0);
    if (m_lastCode != 220) return 0;
    m_secure = 1;
    if (Handshake() != 0) return FailConnect("Perform secure handshake failed", kHandshakeFailed);
    Log(this, kTraceLevel, "Re-initialize session");
    const int32_t hello = Hello();
    if (hello != 0) return FailConnect("No response on HELO", hello);
    return 0;
}

int32_t CNvSmtp::Connect() {
    Log(this, kTraceLevel, "Connect to: [%s:%d]", m_host.GetData(), m_port);
    if (IsConnected()) {
        Log(this, kTraceLevel, "Already connected");
        return 0;
    }
    if (m_host.IsEmpty()) return FailConnect("Invalid hostname", kNoHost);
    // The same text as for the host, kept; 65536 passes and the socket takes
    // the low 16 bits.
    if (m_port < 0 || m_port > 65536) return FailConnect("Invalid hostname", kBadPort);
    if (TcpConnect(m_host.GetData(), m_port, m_connectTimeout) != 0)
        return FailConnect("Connect failed", kConnectFailed);
    if (m_secure && Handshake() != 0) return FailConnect("Perform secure handshake failed", kHandshakeFailed);
    const int32_t greeting = ReadReply(m_connectTimeout);
    if (greeting != 0) return FailConnect(nullptr, greeting);
    if (m_lastCode != 220)
        return FailConnect("Unexpected response while connecting", MapReplyCode(m_lastCode));
    m_resetNeeded = 0;
    const int32_t hello = Hello();
    if (hello != 0) return FailConnect("No response on HELO", hello);
    const int32_t startTls = StartTlsIfOffered();
    if (startTls != 0) return startTls;
    if (m_authMethod == kAuthNone && !m_account.IsEmpty()) m_authMethod = kAuthPlain;
    const int32_t auth = Authenticate();
    if (auth != 0) return FailConnect("Send authentication failed", auth);
    return 0;
}

void CNvSmtp::Quit() {
    if (!IsConnected()) return;
    SendCommand("QUIT", 0);
    SecureClose();
    Log(this, kTraceLevel, "Disconnected");
}

int32_t CNvSmtp::MailFrom(const char* address) {
    CNvcString text;
    text.FormatShort("MAIL FROM: <%s>", address != nullptr ? address : "");
    const int32_t sent = SendCommand(text.GetData(), 0);
    if (sent != 0) {
        m_resetNeeded = 1;
        return sent;
    }
    if (InRange200To399(m_lastCode)) return 0;
    m_resetNeeded = 1;
    return m_lastCode;
}

int32_t CNvSmtp::RcptTo(const std::vector<MailAddress*>& list) {
    for (MailAddress* entry : list) {
        const char* address = entry->m_address.GetAnsi();
        CNvcString text;
        text.Format("RCPT TO: <%s>", address != nullptr ? address : "");
        const int32_t sent = SendCommand(text.GetData(), 0);
        const int32_t result = sent != 0 ? sent : (InRange200To399(m_lastCode) ? 0 : m_lastCode);
        if (result != 0) {
            m_resetNeeded = 1;
            return result;
        }
    }
    return 0;
}

int32_t CNvSmtp::SendData(const char* text) {
    const int32_t data = SendCommand("DATA", 0);
    if (data != 0 || m_lastCode != 354) {
        m_resetNeeded = 1;
        return data != 0 ? data : m_lastCode;
    }
    const int32_t sent = SendMessageText(text != nullptr ? text : "");
    if (sent != 0) return sent;
    return m_lastCode == 250 ? 0 : m_lastCode;
}

// SendCommand for the message text, which leaves stuffed on the fly rather
// than as a stuffed copy: the bytes, the timers, the failure codes and the
// trace line are those of one command. The stuffed text always holds a
// CR LF ("\r\n." comes behind it), so the trace never shows the text.
int32_t CNvSmtp::SendMessageText(const char* text) {
    if (!IsConnected()) return kNotConnected;
    DotStuffer stuffed(text, m_secure ? "\r\n" : m_terminator.GetData());
    if (m_secure) {
        if (SecureSendFrom(stuffed) != 0) return kSecureWriteFailed;
    } else if (SendFrom(stuffed, m_commandTimeout, kSendIdleMs) != 0) {
        return kPlainWriteFailed;
    }
    Log(this, kTraceLevel, "Command: [<Message data>]");
    return ReadReply(m_dataTimeout) == 0 ? 0 : kNoCompleteReply;
}

int32_t CNvSmtp::ResetSession() {
    const int32_t sent = SendCommand("RSET", 0);
    if (sent != 0) return sent;
    return InRange200To399(m_lastCode) ? 0 : m_lastCode;
}

int32_t CNvSmtp::MapReplyCode(int32_t code) {
    static const int32_t kMapped[] = {421, 450, 451, 452, 454, 500, 501, 502, 503, 504,
                                      505, 521, 530, 535, 550, 551, 552, 553, 554};
    for (int32_t mapped : kMapped)
        if (code == mapped) return -code;
    return kUnmappedGreeting;
}

int32_t CNvSmtp::Authenticate() {
    if (m_account.IsEmpty()) return 0;
    switch (m_authMethod) {
        case kAuthCramMd5: return AuthCramMd5();
        case kAuthPlain: return AuthPlain();
        case kAuthLogin: return AuthLogin();
        default: return 0;
    }
}

// One command with the initial response: NUL account NUL password.
int32_t CNvSmtp::AuthPlain() {
    const size_t accountLength = m_account.GetLength();
    const size_t passwordLength = m_password.GetLength();
    if (accountLength + passwordLength + 2 > kPlainBlockSize) return kPlainTooLong;
    char block[kPlainBlockSize];
    block[0] = '\0';
    std::memcpy(block + 1, m_account.GetData(), accountLength);
    block[1 + accountLength] = '\0';
    std::memcpy(block + 2 + accountLength, m_password.GetData(), passwordLength);
    CNvcBase64 base64;
    CNvcString encoded;
    base64.Encode(block, accountLength + passwordLength + 2, encoded);
    Log(this, kTraceLevel, "Using 'AUTH-PLAIN' SMTP authentication.");
    CNvcString command("AUTH PLAIN ");
    command.Append(encoded);
    const int32_t sent = SendCommand(command.GetData(), m_authTimeout);
    if (sent != 0) return sent;
    if (m_lastCode == 235) return 0;
    return m_lastCode == 504 ? kAuthNotImplemented : kAuthRefused;
}

// The decoded prompt behind "334 " names the word, in any case, anywhere.
bool CNvSmtp::PromptAsks(const char* word) {
    CNvcString prompt(m_lastResponse.GetLength() > 4 ? m_lastResponse.GetData() + 4 : "");
    CNvcBase64 base64;
    base64.DecodeString(prompt);
    return prompt.Contains(word, 0) != 0;
}

int32_t CNvSmtp::AuthLogin() {
    Log(this, kTraceLevel, "Using 'AUTH-LOGIN' SMTP authentication.");
    const int32_t sent = SendCommand("AUTH LOGIN", 0);
    if (sent != 0) return sent;
    if (m_lastCode == 504) return kAuthNotImplemented;
    if (!PromptAsks("Username:")) return kAuthRefused;
    CNvcBase64 base64;
    CNvcString account(m_account);
    base64.EncodeString(account);
    if (SendCommand(account.GetData(), m_authTimeout) != 0) return kAuthRefused;
    if (!PromptAsks("Password:")) return kAuthRefused;
    CNvcString password(m_password);
    base64.EncodeString(password);
    if (SendCommand(password.GetData(), m_authTimeout) != 0 || m_lastCode != 235) return kAuthRefused;
    Log(this, kTraceLevel, "Successfully authenticated using 'AUTH-LOGIN' SMTP authentication.");
    return 0;
}

// HMAC-MD5 with the password as key. A key longer than the 64-byte pads is
// hashed first, as RFC 2104 has it, so servers that check by that rule agree;
// the pads are never written past their end.
void CNvSmtp::CramMd5Digest(const char* challenge, char hex[33]) const {
    uint8_t outerPad[kPadSize] = {};
    uint8_t innerPad[kPadSize] = {};
    uint8_t hashedKey[Md5::kDigestSize];
    const uint8_t* key = reinterpret_cast<const uint8_t*>(m_password.GetData());
    size_t keyLength = m_password.GetLength();
    if (keyLength > kPadSize) {
        Md5::Digest(key, keyLength, hashedKey);
        key = hashedKey;
        keyLength = sizeof hashedKey;
    }
    std::memcpy(outerPad, key, keyLength);
    std::memcpy(innerPad, key, keyLength);
    for (size_t i = 0; i < kPadSize; ++i) {
        outerPad[i] ^= 0x5C;
        innerPad[i] ^= 0x36;
    }
    uint8_t inner[Md5::kDigestSize];
    Md5 md5;
    md5.Update(innerPad, kPadSize);
    md5.Update(challenge, std::strlen(challenge));
    md5.Final(inner);
    uint8_t outer[Md5::kDigestSize];
    md5.Init();
    md5.Update(outerPad, kPadSize);
    md5.Update(inner, sizeof inner);
    md5.Final(outer);
    for (size_t i = 0; i < Md5::kDigestSize; ++i) std::snprintf(hex + 2 * i, 3, "%02x", outer[i]);
}

int32_t CNvSmtp::AuthCramMd5() {
    Log(this, kTraceLevel, "Using 'AUTH-CRAM-MD5' SMTP authentication.");
    const int32_t sent = SendCommand("AUTH CRAM-MD5", 0);
    if (sent != 0) return sent;
    if (m_lastCode != 334) return m_lastCode == 504 ? kAuthNotImplemented : m_lastCode;
    m_lastResponse.RemovePrefix("334 ");
    CNvcString challenge(m_lastResponse);
    CNvcBase64 base64;
    base64.DecodeString(challenge);
    char hex[33];
    CramMd5Digest(challenge.GetData(), hex);
    CNvcString answer(m_account);
    answer.Append(' ').Append(hex);
    base64.EncodeString(answer);
    const int32_t replied = SendCommand(answer.GetData(), m_authTimeout);
    if (replied != 0) return replied;
    if (m_lastCode != 235) return kAuthRefused;
    Log(this, kTraceLevel, "Successfully authenticated.");
    return 0;
}
