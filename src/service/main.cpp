// main.cpp - the telmoraq program: the arguments as one command line, then the service entry
#include <string>

#include "service/QueueSvc.h"

int main(int argc, char** argv) {
    std::string commandLine;
    for (int i = 1; i < argc; ++i) {
        if (i > 1) commandLine += ' ';
        commandLine += argv[i];
    }
    return QueueSvcEntry(nullptr, commandLine.c_str());
}
