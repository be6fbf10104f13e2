#include <cstdio>
#include <filesystem>
#include <memory>

#include "command_line.h"
#include "commands.h"

namespace kora::service {
namespace {

constexpr const char* kHelp = R"HELP(NAME
    kora-service withdraw - stop offering an update

SYNOPSIS
    kora-service withdraw UPDATEID [--db PATH]

DESCRIPTION
    Removes the offer UPDATEID from the catalogue and deletes its copy of the
    archive. A running service offers it to no further Check and no longer
    serves its archive. Daemons that already took it up report their progress
    as before; the journal keeps what they sent.

OPTIONS
    --db PATH   the database (default /var/lib/kora-service/catalogue.db)

EXIT STATUS
    0 withdrawn, 1 no such offer or the database failed, 2 wrong command line.
)HELP";

int withdraw(const std::vector<std::string>& words) {
    const CommandLine line(words, {}, {});
    line.expectOperands(1, "UPDATEID");
    const std::string& updateId = line.operands().front();
    const std::unique_ptr<CatalogueStore> store = openStore(line);
    const std::optional<Offer> offer = store->offer(updateId);
    if (!offer || !store->removeOffer(updateId)) {
        throw std::runtime_error("no offer has the UpdateID " + updateId);
    }
    std::error_code error;
    std::filesystem::remove_all(std::filesystem::path(offer->archivePath).parent_path(), error);
    if (error) {
        std::fprintf(stderr, "kora-service withdraw: the archive %s stays: %s\n",
                     offer->archivePath.c_str(), error.message().c_str());
    }
    std::printf("withdrew %s (%s %s)\n", updateId.c_str(), offer->productId.c_str(),
                offer->versionTo.c_str());
    return 0;
}

}  // namespace

const Command kWithdrawCommand{"withdraw", "withdraw UPDATEID [--db PATH]", kHelp, withdraw};

}  // namespace kora::service
