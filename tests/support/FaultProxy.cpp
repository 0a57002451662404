// FaultProxy.cpp - see FaultProxy.h
#include "FaultProxy.h"

#include <unistd.h>

#include <utility>
#include <vector>

namespace testsupport {

namespace {

const char* FaultName(FaultProxy::Fault fault) {
    switch (fault) {
        case FaultProxy::Fault::CutAfterCommand: return "cut-command";
        case FaultProxy::Fault::StallAfterCommand: return "stall-command";
        case FaultProxy::Fault::CutAfterBytes: return "cut-bytes";
        case FaultProxy::Fault::Drip: return "drip";
        case FaultProxy::Fault::Corrupt: return "corrupt";
        default: return "none";
    }
}

}  // namespace

FaultProxy::FaultProxy(const Options& options) {
    if (access("/usr/bin/python3", X_OK) != 0) {
        error_ = "/usr/bin/python3 missing";
        return;
    }
    std::vector<std::string> args = {"/usr/bin/python3",
                                     std::string(TELMORAQ_SOURCE_DIR) + "/tests/support/fault_proxy.py",
                                     "--target", std::to_string(options.targetPort),
                                     "--fault", FaultName(options.fault),
                                     "--bytes", std::to_string(options.bytes),
                                     "--direction", options.upstream ? "up" : "down",
                                     "--interval", std::to_string(options.intervalSeconds)};
    if (!options.command.empty()) args.insert(args.end(), {"--command", options.command});
    if (!options.recordFile.empty()) args.insert(args.end(), {"--record", options.recordFile});
    if (!options.recordDownFile.empty()) args.insert(args.end(), {"--record-down", options.recordDownFile});

    if (!process_.start(std::move(args), 10000)) error_ = "proxy did not start";
}

FaultProxy::~FaultProxy() { stop(); }

void FaultProxy::stop() { process_.stop(); }

}  // namespace testsupport
