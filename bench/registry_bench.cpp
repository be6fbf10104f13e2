// registerClientWith against a registry of 10 to 5,000 applications, beside
// the floor: libplist building the same tree and writing the whole file. The
// registry lives under $KORAD_BENCH_DIR (default /dev/shm), so the figures
// measure the code, not the disk.
//
// After the timings, two fresh runs of this program report their resident
// memory per registered application at 1,000: korad's registry, and one
// libplist dictionary holding the same entries.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "controller/kora_controller.h"
#include "soap/soap_update_service.h"
#include "platform/workspace.h"

namespace {

namespace fs = std::filesystem;

class NoApplications : public kora::Workspace {
  public:
    std::optional<fs::path> absolutePathForAppBundleWithIdentifier(
        std::string_view) const override {
        return std::nullopt;
    }
};

fs::path benchFolder() {
    const char* root = std::getenv("KORAD_BENCH_DIR");
    fs::path folder = fs::path(root != nullptr ? root : "/dev/shm") /
                      ("korad-registry-bench-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    return folder;
}

std::string identifierOf(int index) { return "com.example.application" + std::to_string(index); }

struct Fields {
    std::string installationID = "6F9619FF-8B86-D011-B42D-00C04FC964FF";
    std::string productID = "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9";
    std::string version = "12.4.1";
    std::string brand = "Olvara";
    std::string bundlePath(int index) const {
        return "/Applications/Application " + std::to_string(index) + ".app";
    }
};

void registerOne(kora::KoraController& controller, int index) {
    const Fields fields;
    controller.registerClientWith(identifierOf(index), fields.installationID, fields.productID,
                                  fields.version, fields.bundlePath(index), fields.brand);
}

std::unique_ptr<kora::KoraController> controllerWith(const fs::path& file, int applications) {
    kora::KoraControllerSettings settings;
    settings.configPath = file;
    settings.preferencesFolder = file.parent_path();
    settings.workspace = std::make_shared<NoApplications>();
    settings.tickInterval = std::chrono::hours(24);
    // Registering never reaches the update service, the network or the installer.
    static kora::SoapUpdateService unusedService("http://127.0.0.1:9/");
    static const NoApplications noApplications;
    static kora::LiveInstallerServices services;
    static kora::KoraInstaller unusedInstaller(services.context(noApplications, ""));
    auto controller = std::make_unique<kora::KoraController>(std::move(settings), unusedService,
                                                             unusedInstaller);
    for (int index = 0; index < applications; ++index) registerOne(*controller, index);
    return controller;
}

// The tree the registry writes, built by libplist alone.
plist_t libplistTree(int applications) {
    const Fields fields;
    plist_t section = plist_new_dict();
    for (int index = 0; index < applications; ++index) {
        plist_t entry = plist_new_dict();
        plist_dict_set_item(entry, "bundlePath",
                            plist_new_string(fields.bundlePath(index).c_str()));
        plist_dict_set_item(entry, "lastKnownVersion", plist_new_string(fields.version.c_str()));
        plist_dict_set_item(entry, "hasUpdateAvailable", plist_new_bool(0));
        plist_dict_set_item(entry, "installationID",
                            plist_new_string(fields.installationID.c_str()));
        plist_dict_set_item(entry, "productID", plist_new_string(fields.productID.c_str()));
        plist_dict_set_item(entry, "brand", plist_new_string(fields.brand.c_str()));
        plist_dict_set_item(section, identifierOf(index).c_str(), entry);
    }
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "KoraDB", section);
    return root;
}

void writeWhole(plist_t root, const fs::path& file) {
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    const fs::path temporary = file.string() + ".tmp";
    FILE* out = std::fopen(temporary.c_str(), "w");
    std::fwrite(xml, 1, length, out);
    ::fsync(::fileno(out));
    std::fclose(out);
    std::rename(temporary.c_str(), file.c_str());
    plist_to_xml_free(xml);
}

// One more registration changes the file each time: the same application
// registers again with a new version.
void BM_registerClientWith(benchmark::State& state) {
    const fs::path folder = benchFolder();
    const int applications = static_cast<int>(state.range(0));
    {
        // The registry starts from a file holding the applications: registering
        // them one by one would take the whole run at 5,000.
        plist_t root = libplistTree(applications);
        writeWhole(root, folder / "registry.plist");
        plist_free(root);
        auto controller = controllerWith(folder / "registry.plist", 0);
        const Fields fields;
        int round = 0;
        for (auto _ : state) {
            controller->registerClientWith(identifierOf(0), fields.installationID,
                                           fields.productID, std::to_string(++round),
                                           fields.bundlePath(0), fields.brand);
        }
    }
    fs::remove_all(folder);
}
BENCHMARK(BM_registerClientWith)->Arg(10)->Arg(100)->Arg(1000)->Arg(5000)->Unit(benchmark::kMillisecond);

// The floor: the tree changes in one entry, and libplist rebuilds and writes it whole.
void BM_libplistWholeFileRewrite(benchmark::State& state) {
    const fs::path folder = benchFolder();
    const int applications = static_cast<int>(state.range(0));
    int round = 0;
    for (auto _ : state) {
        plist_t root = libplistTree(applications);
        plist_dict_set_item(plist_dict_get_item(plist_dict_get_item(root, "KoraDB"),
                                                identifierOf(0).c_str()),
                            "lastKnownVersion", plist_new_string(std::to_string(++round).c_str()));
        writeWhole(root, folder / "registry.plist");
        plist_free(root);
    }
    fs::remove_all(folder);
}
BENCHMARK(BM_libplistWholeFileRewrite)->Arg(10)->Arg(100)->Arg(1000)->Arg(5000)->Unit(benchmark::kMillisecond);

// Storing an update that is already complete: the file does not change.
void BM_storeCompletedUpdate(benchmark::State& state) {
    const fs::path folder = benchFolder();
    const fs::path file = folder / "registry.plist";
    {
        auto controller = controllerWith(file, static_cast<int>(state.range(0)));
        const NoApplications workspace;
        kora::KoraDB database(file, workspace, folder);
        auto update = std::make_shared<kora::KoraUpdate>();
        update->setDownloadComplete(true);
        update->setInstallationComplete(true);
        for (auto _ : state) database.updateInfoForUpdateWithIdentifier(identifierOf(0), update);
    }
    fs::remove_all(folder);
}
BENCHMARK(BM_storeCompletedUpdate)->Arg(1000)->Unit(benchmark::kMillisecond);

long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return -1;
}

// Which filling a fresh run of this program measures, named by its first argument.
constexpr const char* kMeasureKorad = "--resident-korad";
constexpr const char* kMeasureLibplist = "--resident-libplist";
constexpr int kResidentApplications = 1000;

// Fills memory as `measure` names and prints the growth of the resident set in
// kilobytes. Runs in a process of its own: a forked child would reuse the heap
// that the timed benchmarks freed, and its growth would show less than it holds.
int measureResidentGrowth(const std::string& measure, const fs::path& folder) {
    long before = residentKilobytes();
    if (measure == kMeasureKorad) {
        // The controller's own memory is not the registrations'. Kept alive
        // past the measurement.
        auto* controller = controllerWith(folder / "registry.plist", 0).release();
        before = residentKilobytes();
        for (int index = 0; index < kResidentApplications; ++index) registerOne(*controller, index);
    } else {
        libplistTree(kResidentApplications);
    }
    std::printf("%ld\n", residentKilobytes() - before);
    return 0;
}

double residentGrowthInFreshProcess(const char* measure, const fs::path& folder) {
    const std::string command =
        "/proc/" + std::to_string(::getpid()) + "/exe " + measure + " '" + folder.string() + "'";
    FILE* child = ::popen(command.c_str(), "r");
    if (child == nullptr) return -1;
    long growth = -1;
    if (std::fscanf(child, "%ld", &growth) != 1) growth = -1;
    ::pclose(child);
    return static_cast<double>(growth);
}

void reportResidentMemory() {
    const fs::path folder = benchFolder();
    const double korad = residentGrowthInFreshProcess(kMeasureKorad, folder);
    const double floor = residentGrowthInFreshProcess(kMeasureLibplist, folder);
    std::printf("Resident memory per registered application at %d: korad %.2f kB, "
                "one libplist dictionary %.2f kB (%.2fx)\n",
                kResidentApplications, korad / kResidentApplications,
                floor / kResidentApplications, korad / floor);
    fs::remove_all(folder);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && (std::string(argv[1]) == kMeasureKorad ||
                      std::string(argv[1]) == kMeasureLibplist)) {
        return measureResidentGrowth(argv[1], argv[2]);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    reportResidentMemory();
    return 0;
}
