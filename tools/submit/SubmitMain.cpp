// SubmitMain.cpp - telmoraq-submit: drops one queue file into the pickup folder
//
//   telmoraq-submit [--pickup DIR] [--name NAME] --host HOST [--port N]
//                   [--account NAME] [--password TEXT] [--secure]
//                   (--message FILE | --from ADDR --to ADDR... [--cc ADDR]... [--bcc ADDR]...
//                    [--subject TEXT] [--body TEXT | --body-file FILE] [--attach FILE]...)
//
// Without --pickup the folder is PickupMailDir of the service's registry file
// (TELMORAQ_REGISTRY). Prints the path of the queue file; exits 1 on failure, 2
// on a usage error.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

#include "QueueFileWriter.h"
#include "foundation/SystemHelpers.h"
#include "platform/RandomBytes.h"

namespace {

int Usage(const char* problem) {
    std::fprintf(stderr,
                 "telmoraq-submit: %s\n"
                 "usage: telmoraq-submit [--pickup DIR] [--name NAME] --host HOST [--port N]\n"
                 "         [--account NAME] [--password TEXT] [--secure]\n"
                 "         (--message FILE | --from ADDR --to ADDR... [--cc ADDR]... [--bcc ADDR]...\n"
                 "          [--subject TEXT] [--body TEXT | --body-file FILE] [--attach FILE]...)\n",
                 problem);
    return 2;
}

bool ReadWhole(const std::string& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream data;
    data << in.rdbuf();
    out = data.str();
    return true;
}

bool SingleLine(const std::string& text) { return text.find_first_of("\r\n") == std::string::npos; }

}  // namespace

int main(int argc, char** argv) {
    DeliverySettings settings;
    MessageParts parts;
    std::string pickup, name, messageFile, bodyFile;
    bool portGiven = false;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--secure") {
            settings.secure = true;
            continue;
        }
        if (i + 1 >= argc) return Usage(("missing value for " + option).c_str());
        const std::string value = argv[++i];
        if (!SingleLine(value) && option != "--body") return Usage("values must be single lines");
        if (option == "--pickup") pickup = value;
        else if (option == "--name") name = value;
        else if (option == "--host") settings.host = value;
        else if (option == "--port") settings.port = std::atoi(value.c_str()), portGiven = true;
        else if (option == "--account") settings.account = value;
        else if (option == "--password") settings.password = value;
        else if (option == "--message") messageFile = value;
        else if (option == "--from") parts.from = value;
        else if (option == "--to") parts.to.push_back(value);
        else if (option == "--cc") parts.cc.push_back(value);
        else if (option == "--bcc") parts.bcc.push_back(value);
        else if (option == "--subject") parts.subject = value;
        else if (option == "--body") parts.body = value;
        else if (option == "--body-file") bodyFile = value;
        else if (option == "--attach") parts.attachments.push_back(value);
        else return Usage(("unknown option " + option).c_str());
    }
    if (settings.host.empty()) return Usage("--host is required");
    if (!portGiven) settings.port = settings.secure ? 465 : 25;
    if (messageFile.empty() && (parts.from.empty() || parts.to.empty()))
        return Usage("give --message, or --from and --to");
    if (name.find('/') != std::string::npos) return Usage("--name must be a plain name");

    if (pickup.empty()) {
        CNvcString configured;
        ReadRegistryString(HKEY_LOCAL_MACHINE, "Software\\Norvane\\Telmora\\QueueServer",
                           "PickupMailDir", "", configured, 0);
        pickup = configured.GetData();
        if (pickup.empty()) return Usage("no --pickup and no PickupMailDir in the registry");
    }

    std::string message, error;
    if (!messageFile.empty()) {
        if (!ReadWhole(messageFile, message)) {
            std::fprintf(stderr, "telmoraq-submit: cannot read %s\n", messageFile.c_str());
            return 1;
        }
    } else {
        if (!bodyFile.empty() && !ReadWhole(bodyFile, parts.body)) {
            std::fprintf(stderr, "telmoraq-submit: cannot read %s\n", bodyFile.c_str());
            return 1;
        }
        if (!ComposeMessage(parts, message, error)) {
            std::fprintf(stderr, "telmoraq-submit: %s\n", error.c_str());
            return 1;
        }
    }

    unsigned char random[7] = {};
    platform::RandomBytes(random, sizeof random);
    if (name.empty()) {
        char unique[64];
        std::snprintf(unique, sizeof unique, "submit-%ld-%d-%02x%02x%02x%02x",
                      static_cast<long>(std::time(nullptr)), static_cast<int>(::getpid()), random[3],
                      random[4], random[5], random[6]);
        name = unique;
    }
    std::string path;
    if (!WriteQueueFile(pickup, name, WithControlHeaders(message, settings, random), path, error)) {
        std::fprintf(stderr, "telmoraq-submit: %s\n", error.c_str());
        return 1;
    }
    std::printf("%s\n", path.c_str());
    return 0;
}
