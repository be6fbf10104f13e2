// Installs one downloaded update archive as the daemon would, with the live
// installer (the fixed paths, the system's cp, chmod and unzip, and the
// adapters in the daemon's libexec folder) and the self-update helper on the
// system bus. For end-to-end tests inside korad-sandbox.
//
// usage: install_update ARCHIVE HASH [PARAMETERS]
// Prints the delegate's answer ("installationDidFinishFor" or
// "installationErrorOn") on standard output; exits 0 once the run has ended.

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

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4) {
        std::fprintf(stderr, "usage: install_update ARCHIVE HASH [PARAMETERS]\n");
        return 2;
    }
    kora::LiveWorkspace workspace;
    kora::LiveInstallerServices services;
    kora::KoraInstaller installer(services.context(workspace, ""));
    kora::DBusSelfUpdateHelper helper;
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
