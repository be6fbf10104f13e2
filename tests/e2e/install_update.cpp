// usage: install_update ARCHIVE HASH [PARAMETERS]
// Installs an update archive as the daemon would, with the live installer and the self-update
// helper on the system bus, and prints the delegate's answer (the helper's to standard error).

#include <cstdio>
#include <memory>
#include <string>

#include "platform/dbus_self_update_helper.h"
#include "platform/workspace.h"
#include "update/kora_installer.h"
#include "update/kora_update.h"
#include "update/kora_update_delegate.h"

namespace {

using kora::KoraUpdate;

struct PrintingDelegate : kora::KoraUpdateDelegate {
    void downloadErrorOn(const std::shared_ptr<KoraUpdate>&) override {}
    void downloadDidFinishFor(const std::shared_ptr<KoraUpdate>&) override {}
    void installationErrorOn(const std::shared_ptr<KoraUpdate>&) override {
        std::puts("installationErrorOn");
    }
    void installationDidFinishFor(const std::shared_ptr<KoraUpdate>&) override {
        std::puts("installationDidFinishFor");
    }
};

// The helper on the bus, whose answer goes to standard error.
struct ReportingHelper : kora::DBusSelfUpdateHelper {
    bool installDaemonWithIdentifier(const std::optional<std::string>& identifier,
                                     const std::optional<std::string>& binary) override {
        const bool installed = DBusSelfUpdateHelper::installDaemonWithIdentifier(identifier, binary);
        std::fprintf(stderr, "the helper answered %s\n", installed ? "true" : "false");
        return installed;
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4) {
        std::fprintf(stderr, "usage: install_update ARCHIVE HASH [PARAMETERS]\n");
        return 2;
    }
    kora::LiveWorkspace workspace;
    kora::LiveInstallerServices services;
    kora::KoraInstaller installer(services.context(workspace, ""));
    ReportingHelper helper;
    PrintingDelegate delegate;

    auto update = std::make_shared<KoraUpdate>();
    update->setIdentifier("com.olvara.Sample");
    update->setLocalFilePath(std::string(argv[1]));
    update->setHash(std::string(argv[2]));
    if (argc == 4) update->setParameters(std::string(argv[3]));
    update->setDelegate(&delegate);
    update->startInstallation(installer, &helper);
    std::fflush(stdout);
    return 0;
}
