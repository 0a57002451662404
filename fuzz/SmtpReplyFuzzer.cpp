// SmtpReplyFuzzer.cpp - whatever a server may send, read by the SMTP client over a real socket
//
// The first byte is a switch board, the rest is the server's whole output: it
// is written into a loopback connection at once and the server's side is shut
// for writing, so every read ends at the latest at that end of stream. The
// client then runs a full session on it: greeting, EHLO (HELO), STARTTLS when
// allowed, AUTH by whichever method the reply named (challenges included),
// MAIL, RCPT, DATA, RSET and QUIT. Each input must end within its small time
// limits, with a reply text never longer than its cap, and leave the client
// closed after QUIT.
//
// Switches: bit 0 allows STARTTLS, bit 1 starts TLS from the first byte, bit 2
// sets an account, bit 3 a password longer than the HMAC pads, bits 4-5 the
// method in force before the EHLO reply picks one.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include "mail/NvMail.h"
#include "smtp/NvSmtp.h"

namespace {

// Larger inputs show nothing new: the reply cap is tested on its own.
constexpr size_t kMaxInput = 64 * 1024;
constexpr uint32_t kReplyCap = (1u << 20) + 1024;

int ListeningSocket(int& port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(fd, 16) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        close(fd);
        return -1;
    }
    port = ntohs(address.sin_port);
    return fd;
}

struct Listener {
    int fd = -1;
    int port = 0;
    Listener() {
        // A client writing after the peer is gone must get an error, not a signal.
        signal(SIGPIPE, SIG_IGN);
        fd = ListeningSocket(port);
    }
};

// The whole output, then the end of stream.
void Feed(int fd, const uint8_t* data, size_t size) {
    size_t sent = 0;
    while (sent < size) {
        const ssize_t n = send(fd, data + sent, size - sent, MSG_NOSIGNAL);
        if (n <= 0) return;
        sent += static_cast<size_t>(n);
    }
    shutdown(fd, SHUT_WR);
}

void CheckReply(const CNvSmtp& client) {
    if (client.m_lastResponse.GetLength() > kReplyCap) __builtin_trap();
}

void RunSession(CNvSmtp& client) {
    if (client.Connect() != 0) {
        CheckReply(client);
        if (client.IsConnected()) __builtin_trap();
        return;
    }
    CheckReply(client);
    client.MailFrom("sender@example.org");
    CheckReply(client);
    MailAddress first, second;
    first.m_address.Assign("a@example.org");
    second.m_address.Assign("b@example.org");
    client.RcptTo({&first, &second});
    CheckReply(client);
    client.SendData("Subject: x\r\n\r\n.line\r\nend");
    CheckReply(client);
    client.ResetSession();
    CheckReply(client);
    client.Quit();
    if (client.IsConnected()) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Listener listener;
    if (size < 1 || size > kMaxInput || listener.fd < 0) return 0;
    const uint8_t flags = data[0];

    CNvSmtp client;
    client.SetHost("127.0.0.1");
    client.m_port = listener.port;
    client.m_connectTimeout = 200;
    client.m_commandTimeout = 40;
    client.m_authTimeout = 40;
    client.m_dataTimeout = 40;
    client.m_startTlsAllowed = flags & 1;
    client.m_secure = (flags >> 1) & 1;
    if (flags & 4) {
        client.m_account = "user";
        client.m_password = (flags & 8) ? std::string(80, 'k').c_str() : "pass";
    }
    client.m_authMethod = (flags >> 4) & 3;

    // The server side runs on its own thread: a large output must not wait
    // for a reader on the same thread.
    std::thread feeder([&] {
        pollfd ready{listener.fd, POLLIN, 0};
        if (poll(&ready, 1, 1000) != 1) return;
        const int server = accept(listener.fd, nullptr, nullptr);
        if (server < 0) return;
        Feed(server, data + 1, size - 1);
        // Reads the client's commands until it closes: a server that closed
        // with commands unread would reset the connection and drop output
        // the client has not read yet.
        char sink[4096];
        while (recv(server, sink, sizeof sink, 0) > 0) {
        }
        close(server);
    });
    RunSession(client);
    client.SecureClose();
    feeder.join();
    return 0;
}
