// Hashes one file the way the installer checks an update archive, and prints
// the digest with the process's resident memory before hashing and its peak
// afterwards. bench/hash_bench compares it with `openssl sha1` and `sha1sum`.
#include <cstdio>
#include <fstream>
#include <string>

#include "update/kora_installer.h"

namespace {

// A "Vm...:" figure of /proc/self/status, in KiB.
long statusKiB(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(field + ":", 0) == 0) return std::stol(line.substr(field.size() + 1));
    }
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: sha1_file FILE\n");
        return 2;
    }
    const long idle = statusKiB("VmRSS");
    const std::string digest = kora::KoraInstaller::getSHA1HashForFile(argv[1]);
    std::printf("%s  %s\nidle VmRSS %ld KiB, peak VmHWM %ld KiB\n", digest.c_str(), argv[1], idle,
                statusKiB("VmHWM"));
    return 0;
}
