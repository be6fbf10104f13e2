// Installing an update archive through the interpreter (digest, unzip, one
// "updatefiles" action, chmod, clean-up) against a plain `unzip` + `cp -R` of
// the same archive.
//
// usage: install_archive [FILES] [BYTES_PER_FILE] [ROUNDS]   (default 2000 100000 2)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "platform/logging.h"
#include "update/kora_installer.h"
#include "update/kora_update.h"

namespace fs = std::filesystem;
using namespace kora;

namespace {

double secondsOf(auto&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "failed: %s\n", command.c_str());
        std::exit(1);
    }
}

// work/Upd.zip, stored: FILES files of random bytes below "Upd/payload" and a
// script that copies that folder to `destination`.
fs::path makeArchive(const fs::path& work, int files, std::size_t bytes, const fs::path& destination) {
    const fs::path payload = work / "Upd/payload";
    fs::create_directories(payload);
    std::mt19937_64 random(42);
    std::string content(bytes, '\0');
    for (int index = 0; index < files; ++index) {
        for (char& byte : content) byte = static_cast<char>(random());
        std::ofstream(payload / ("file" + std::to_string(index)), std::ios::binary) << content;
    }
    PlistDictionary action;
    action.set("Command", "updatefiles");
    action.set("From", "@update/payload");
    action.set("To", destination.string());
    PlistDictionary script;
    script.set("Actions", PlistValue::Array{PlistValue(action)});
    writePropertyList(PlistValue(script), work / "Upd/update.plist");
    run("cd '" + work.string() + "' && zip -q -0 -r Upd.zip Upd && rm -rf Upd");
    return work / "Upd.zip";
}

}  // namespace

int main(int argc, char** argv) {
    const int files = argc > 1 ? std::atoi(argv[1]) : 2000;
    const std::size_t bytes = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 100000;
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 2;
    const fs::path work = fs::temp_directory_path() / ("korad-install-bench-" + std::to_string(getpid()));
    const fs::path source = work / "source";
    fs::create_directories(source);
    const fs::path archive = makeArchive(source, files, bytes, work / "installed");
    setLogSink([](LogChannel, int, const std::string&) {});

    LiveInstallerServices services;
    LiveWorkspace workspace(work / "Applications");
    KoraInstaller installer(services.context(workspace, ""));
    for (int round = 0; round < rounds; ++round) {
        const fs::path plain = work / "plain";
        fs::create_directories(plain);
        const double plainSeconds = secondsOf([&] {
            run("unzip -q -u -o '" + archive.string() + "' -d '" + plain.string() + "/' && cp -R '" +
                plain.string() + "/Upd/payload' '" + (work / "copied").string() + "'");
        });
        fs::remove_all(plain);
        fs::remove_all(work / "copied");

        const fs::path arrived = work / "tmp/Upd.zip";
        fs::create_directories(arrived.parent_path());
        fs::copy_file(archive, arrived);
        auto update = std::make_shared<KoraUpdate>();
        update->setLocalFilePath(arrived.string());
        update->setHash(KoraInstaller::getSHA1HashForFile(arrived));
        const double installSeconds = secondsOf([&] { update->startInstallation(installer, nullptr); });
        fs::remove_all(work / "installed");

        std::printf("round %d: unzip + cp -R %.2f s, installation %.2f s, ratio %.2f\n", round + 1,
                    plainSeconds, installSeconds, installSeconds / plainSeconds);
    }
    fs::remove_all(work);
}
