// NvSmtp.h - the SMTP client: one session, one transaction, AUTH PLAIN/LOGIN/CRAM-MD5
//
// Speaks CRLF lines over the plain socket or, with the secure flag, through the
// TLS channel (from the first byte, or after an offered STARTTLS). Connect runs
// greeting, EHLO (HELO as fallback), STARTTLS and AUTH; SendMail runs MAIL FROM,
// RCPT TO for To, Cc and Bcc, and DATA with dot-stuffing; Quit says QUIT and
// closes. The worker writes host, port, account, password and secure flag
// directly before each Connect; what the last reply said stays readable after
// Quit in m_lastResponse and m_lastCode.
//
// Input:       any server bytes. A reply line ends the reply when it is exactly
//              3 characters long or has a blank as its 4th; any other line,
//              however short, continues it. The auth method is picked from the
//              words LOGIN, CRAM-MD5, PLAIN anywhere in the EHLO reply.
// Diagnostics: 0, a positive server reply code, or our own codes: -2 PLAIN block
//              too long, -2001..-2015 (see the enum), -421..-554 refused greeting.
//              Trace lines at level 6, replies at level 3 ("Response: [...]").
// Limits:      a reply is read up to 1 MiB of text; a longer one counts as lost.
// Known gaps:  nothing retries and no second mechanism is tried. The STARTTLS
//              test needs " 250-STARTTLS", so an offer on the last line of the
//              reply is not seen; kept, servers are matched by that rule.
// See also:    NvSecureProtocol.h, Md5.h, mail/NvMail.h
#pragma once

#include <cstdint>
#include <vector>

#include "foundation/NvcString.h"
#include "smtp/NvSecureProtocol.h"

class CNvMail;
struct MailAddress;

class CNvSmtp : public CNvSecureProtocol {
public:
    enum : int32_t {
        kPlainTooLong = -2,
        kNoHost = -2001,
        kBadPort = -2002,
        kConnectFailed = -2003,
        kNoCompleteReply = -2004,
        kNoReplyCode = -2005,
        kUnmappedGreeting = -2006,
        kHelloRefused = -2007,
        kNotConnected = -2008,
        kSecureWriteFailed = -2009,
        kPlainWriteFailed = -2010,
        kAuthNotImplemented = -2011,
        kAuthRefused = -2012,
        kHandshakeFailed = -2015,
    };
    enum : int32_t { kAuthNone = 0, kAuthPlain = 1, kAuthLogin = 2, kAuthCramMd5 = 3 };

    CNvSmtp();
    ~CNvSmtp() override;

    // Opens the session up to and including authentication; every failure
    // leaves it closed.
    int32_t Connect();
    // One transaction for `mail`; replaces the mail's MIME tree by Compose.
    int32_t SendMail(CNvMail& mail);
    // QUIT and close; nothing when not connected.
    void Quit();

    // A timeout of 0 means the command timeout.
    int32_t ReadReply(uint32_t timeoutMs);
    // 0 when a reply was read; the caller judges m_lastCode.
    int32_t SendCommand(const char* text, uint32_t timeoutMs);

    int32_t Hello();
    int32_t MailFrom(const char* address);
    int32_t RcptTo(const std::vector<MailAddress*>& list);
    int32_t SendData(const char* text);
    int32_t ResetSession();
    int32_t Authenticate();

    static int32_t MapReplyCode(int32_t code);

    // Written by the worker before Connect (the host is m_host of the base).
    uint8_t m_secure = 0;
    CNvcString m_account;
    CNvcString m_password;
    // Every line of the last reply followed by one blank, CR LF removed.
    CNvcString m_lastResponse;
    // Kept across connections on purpose: only an offer or Connect writes it.
    int32_t m_authMethod = kAuthNone;
    int32_t m_lastCode = 0;
    int32_t m_port = 25;
    uint32_t m_connectTimeout = 20000;
    uint32_t m_authTimeout = 20000;
    uint32_t m_commandTimeout = 5000;
    uint32_t m_dataTimeout = 120000;
    int32_t m_startTlsAllowed = 1;
    uint8_t m_resetNeeded = 0;

private:
    uint32_t EffectiveTimeout(uint32_t timeoutMs) const;
    int32_t ReadReplyLine(CNvcString& line, uint32_t timeoutMs);
    int32_t WriteCommand(CNvcString& copy);
    void TraceCommand(CNvcString& copy);
    int32_t SendMessageText(const char* text);
    int32_t FailConnect(const char* traceLine, int32_t result);
    int32_t StartTlsIfOffered();
    void PickAuthMethod();
    int32_t AuthPlain();
    int32_t AuthLogin();
    int32_t AuthCramMd5();
    bool PromptAsks(const char* word);
    void CramMd5Digest(const char* challenge, char hex[33]) const;
};
