// ScriptedSmtpPeer.h - an SMTP server that plays a fixed script, for byte-exact dialogues
//
// Listens on a loopback port, takes one connection and runs its steps in
// order on a thread of its own: say a text, hear one client line, hear a whole
// DATA text up to "\r\n.\r\n", start TLS (server side, a certificate made in
// memory), pause, hang up. Every line the client sent is kept in order, with
// "[TLS]" where a handshake completed; after the last step it keeps reading
// until the client closes, so a command the script did not expect shows up.
//
// Diagnostics: error() names the first step that failed (no client, a line
//              that never came, a failed handshake); lines() is what arrived.
// Limits:      every wait ends after 10 seconds, so a broken client cannot hang
//              a test.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "support/SocketTestPeer.h"

namespace scripted {

struct Step {
    enum class Kind { Say, Hear, HearData, StartTls, Pause, Hangup } kind;
    std::string text;
    int ms = 0;
};

// Sends `line` and CR LF; several lines may be given joined by "\r\n".
inline Step Say(const std::string& line) { return {Step::Kind::Say, line + "\r\n", 0}; }
// Sends exactly these bytes.
inline Step SayRaw(const std::string& bytes) { return {Step::Kind::Say, bytes, 0}; }
inline Step Hear() { return {Step::Kind::Hear, "", 0}; }
inline Step HearData() { return {Step::Kind::HearData, "", 0}; }
inline Step StartTls() { return {Step::Kind::StartTls, "", 0}; }
inline Step Pause(int ms) { return {Step::Kind::Pause, "", ms}; }
inline Step Hangup() { return {Step::Kind::Hangup, "", 0}; }

class Peer {
public:
    // With `tlsFromStart` the handshake runs before the first step.
    explicit Peer(std::vector<Step> script, bool tlsFromStart = false);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    int port() const { return listener_.port(); }
    // Waits for the script and the client's close; then what the client sent:
    // lines without CR LF, a DATA text whole with its line ends.
    const std::vector<std::string>& lines();
    const std::string& error();

private:
    struct Connection;
    void Run();
    void Play(Connection& connection);
    bool PlayStep(Connection& connection, const Step& step);
    void Finish();

    std::vector<Step> script_;
    bool tlsFromStart_;
    testsupport::LoopbackPeer listener_;
    std::vector<std::string> lines_;
    std::string error_;
    std::thread thread_;
};

}  // namespace scripted
