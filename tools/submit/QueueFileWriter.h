// QueueFileWriter.h - the producer's side of a queue file
//
// A queue file is a stored MIME message with five control headers in front:
// host, port, account, password (scrambled) and secure flag. The writer puts
// them at the head of a given message, dropping any of the same names that it
// already had, or composes a small message from parts for a quick test. The
// file is written under a temporary name that no pass takes, flushed, renamed
// to ".nvq" without replacing anything, and the folder is flushed, so that the
// service never sees half a file.
//
// Input:       header values must be single lines; the message is any bytes.
// Diagnostics: false with a reason in `error`.
// See also:    service/ThreadQueue.h (the reader), foundation/NvcString.h (Unscramble)
#pragma once

#include <string>
#include <vector>

struct DeliverySettings {
    std::string host;
    int port = 25;
    std::string account;
    std::string password;
    bool secure = false;
};

struct MessageParts {
    std::string from;
    std::vector<std::string> to;
    std::vector<std::string> cc;
    std::vector<std::string> bcc;
    std::string subject;
    std::string body;                      // UTF-8 text
    std::vector<std::string> attachments;  // file paths
};

// Six hex digits of key, then one hex pair per byte, each byte plus its
// rotating key byte; the reader subtracts them again. "" stays "".
std::string ScramblePassword(const std::string& password, const unsigned char key[3]);

// The message with the control headers in front; line ends of the headers
// follow the message's own (CR LF unless it uses bare LF).
std::string WithControlHeaders(const std::string& message, const DeliverySettings& settings,
                               const unsigned char key[3]);

// A MIME message from parts: text/plain alone, or multipart/mixed with the
// attachments in base64. False when an attachment cannot be read.
bool ComposeMessage(const MessageParts& parts, std::string& out, std::string& error);

// Writes `<folder>/<name>.nvq` by way of a temporary name; `path` gets the
// final path.
bool WriteQueueFile(const std::string& folder, const std::string& name, const std::string& text,
                    std::string& path, std::string& error);
