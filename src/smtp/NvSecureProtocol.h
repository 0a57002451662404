// NvSecureProtocol.h - TLS client channel over the TCP socket of its base class
//
// Runs the token loop of the handshake, frames writes into records and puts
// records and lines back together on reads, over the token-stepped TLS client
// of platform/SecurityContext.h. Handshake may follow a plain dialogue
// (STARTTLS): bytes the line reader already fetched are used before the
// socket. Each write leaves as full records with a stall limit of 3000 ms and
// no total limit; a read delivers at most one record per call.
//
// Input:       any bytes from the server. A line ends at CR LF and is cut at its
//              first CR, then at its first LF; zero bytes inside it are dropped.
//              A line longer than one record's plaintext cannot complete (-1014).
// Trust:       the server's certificate is never checked. A client certificate
//              is offered only when the server asks, from the store "MY".
// Diagnostics: 0, or -1003 credentials, -1004 connection gone in the handshake
//              or with a partial record, -1005 read failure in the handshake,
//              -1006 store, -1007 handshake did not complete, -1008 no memory,
//              -1009 channel not up, -1010 encrypt, -1011 decrypt, -1012 record
//              too large, -1014 line time-out; socket codes pass through.
//              Trace: "Secure connection details:" and its lines, level 1.
// Limits:      a handshake loop ends after kHandshakeLimitMs (20 s) without
//              completing, so that a silent server cannot hold the worker;
//              it then fails with -1007.
// Known gaps:  no closing alert is sent; a close notification from the server
//              is not an error, the line read runs on to its limit.
// See also:    NvcTcpSocket.h, platform/SecurityContext.h
#pragma once

#include <cstdint>
#include <vector>

#include "foundation/NvcString.h"
#include "platform/SecurityContext.h"
#include "smtp/NvcTcpSocket.h"

class CNvSecureProtocol : public CNvcTcpSocket {
public:
    static constexpr uint32_t kHandshakeLimitMs = 20000;

    explicit CNvSecureProtocol(const char* name);
    ~CNvSecureProtocol() override;

    void SetHost(const char* host) { m_host = host; }
    const CNvcString& GetHost() const { return m_host; }

    int32_t Handshake();
    // Appends CR LF to the caller's text and sends it in as many records as it takes.
    int32_t SecureSendLine(CNvcString& text);
    // All bytes of `source` in full records, each under the stall limit.
    int32_t SecureSendFrom(ByteSource& source);
    int32_t SecureReadLine(CNvcString& line, uint32_t timeoutMs);
    // Closes socket and channel and releases everything; always 0.
    int32_t SecureClose();

    // The report lines for connection values, in the order they are traced.
    static std::vector<CNvcString> FormatConnectionReport(const platform::SecPkgContext_ConnectionInfo& info);

protected:
    int32_t SecureRead(void* buffer, uint32_t size, uint32_t& got);
    int32_t HandshakeLoop(int32_t readFirst, platform::SecBuffer& extra);
    void GetClientCredentials();
    void ReportConnection();

    CNvcString m_host;
    platform::CertStore* m_certStore = nullptr;
    platform::SCHANNEL_CRED m_credentialSettings{};
    platform::CtxtHandle m_context = platform::kNoSecHandle;
    platform::CredHandle m_credentials = platform::kNoSecHandle;
    uint32_t m_headerSize = 0;
    uint32_t m_trailerSize = 0;
    uint8_t* m_sendBuffer = nullptr;
    uint8_t* m_spillBuffer = nullptr;
    uint32_t m_spillCount = 0;
    uint8_t* m_recordBuffer = nullptr;
    uint32_t m_recordCount = 0;
    uint8_t* m_lineBuffer = nullptr;
    uint32_t m_linePosition = 0;
    uint32_t m_lineCount = 0;
    uint32_t m_maximumMessage = 0;

private:
    int32_t HandshakeSteps(platform::SecBuffer& firstToken);
    int32_t SendFirstToken(platform::SecBuffer& token);
    int32_t SetUpChannel(platform::SecBuffer& extra);
    int32_t ReadHandshakeInput(uint8_t* input, uint32_t& count);
    platform::SECURITY_STATUS StepContext(uint8_t* input, uint32_t count, platform::SecBuffer& second,
                                          int32_t& sendResult);
    static uint32_t KeepUnconsumed(uint8_t* input, uint32_t count, const platform::SecBuffer& second);
    int32_t SendToken(platform::SecBuffer& token);
    int32_t HandOutExtra(const uint8_t* input, uint32_t count, const platform::SecBuffer& second,
                         platform::SecBuffer& extra);
    void DeleteContext();
    void FreeChannelBuffers();
    int32_t DeliverSpill(uint8_t* buffer, uint32_t size, uint32_t& got);
    void DeliverRecord(platform::SecBuffer* buffers, uint8_t* buffer, uint32_t size, uint32_t& got);
    bool TakeLine(CNvcString& line);

    const platform::CertContext* m_clientCertificate = nullptr;
};
