#include <glib.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "command_line.h"
#include "commands.h"
#include "offer_choice.h"
#include "platform/digest.h"
#include "preflight/archive_preflight.h"
#include "service_answers.h"

namespace kora::service {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHelp = R"HELP(NAME
    kora-service publish - check an update archive and offer it to daemons

SYNOPSIS
    kora-service publish ARCHIVE --product ID --version VERSION_TO [--brand BRAND]
                         [--from-version MIN] [--to-version MAX]
                         [--parameters PARAMETERS] [--db PATH]

DESCRIPTION
    Checks ARCHIVE the way a Korad daemon will install it: the daemon unpacks it
    into a folder named like the archive without its extension and runs the
    "Actions" of "update.plist" in that folder. Every problem found is listed on
    standard error. An archive with errors is refused and nothing is published;
    warnings are printed and the archive is published.

    A published archive is copied beside the database ("archives/UPDATEID/"),
    so ARCHIVE may be removed afterwards, and offered with a new UpdateID, its
    SHA-1 digest (which the daemon checks before installing) and its size. The
    UpdateID is printed on standard output.

    A Check from a daemon gets the offer with the highest VERSION_TO among those
    whose product is its ProductID, whose brand (when the offer names one) is
    its Brand, whose range contains its Version, and whose VERSION_TO is above
    its Version. Versions compare as dotted numbers: 1.10 is above 1.9, and 1.2
    equals 1.2.0.

OPTIONS
    --product ID          the ProductID the update is for (required)
    --version VERSION_TO  the version the update installs, dotted numbers (required)
    --brand BRAND         offer only to daemons that send this Brand
    --from-version MIN    offer only to installed versions from MIN on
    --to-version MAX      offer only to installed versions up to MAX
    --parameters P        the Parameters sent with the offer ("-restart" has the
                          daemon stop the application before and start it after)
    --db PATH             the database (default /var/lib/kora-service/catalogue.db)

EXIT STATUS
    0 published, 1 refused or failed (the reasons are printed), 2 wrong command line.

EXAMPLES
    kora-service publish ConnectionManager-2.1.zip --product 5f1c...e2 \
        --version 2.1 --from-version 1.0 --to-version 2.0.99 --parameters -restart
)HELP";

std::optional<std::string> checkedVersion(const CommandLine& line, const std::string& option) {
    const std::optional<std::string> version = line.value(option);
    if (version && !isDottedVersion(*version)) {
        throw UsageError("--" + option + " takes dotted numbers such as 2.0.1, not '" + *version +
                         "'");
    }
    return version;
}

Offer offerFromCommandLine(const CommandLine& line) {
    Offer offer;
    offer.productId = line.required("product");
    if (!line.value("version")) throw UsageError("--version is required");
    offer.versionTo = *checkedVersion(line, "version");
    offer.brand = line.value("brand");
    offer.fromVersion = checkedVersion(line, "from-version");
    offer.toVersion = checkedVersion(line, "to-version");
    if (offer.fromVersion && offer.toVersion &&
        compareVersions(*offer.fromVersion, *offer.toVersion) > 0) {
        throw UsageError("--from-version " + *offer.fromVersion + " is above --to-version " +
                         *offer.toVersion);
    }
    offer.parameters = line.value("parameters");
    return offer;
}

// True when the archive may be published; prints every problem either way.
bool passesPreflight(const fs::path& archive, const std::string& shownName) {
    bool errors = false;
    for (const PreflightProblem& problem : preflightUpdateArchive(archive)) {
        const bool error = problem.severity == PreflightProblem::Severity::Error;
        errors = errors || error;
        std::fprintf(stderr, "%s: %s: %s\n", shownName.c_str(), error ? "error" : "warning",
                     problem.text.c_str());
    }
    return !errors;
}

// Removes the copy of a refused or failed publication.
class CopyGuard {
  public:
    explicit CopyGuard(fs::path folder) : folder_(std::move(folder)) {}
    ~CopyGuard() {
        std::error_code ignored;
        if (!kept_) fs::remove_all(folder_, ignored);
    }
    void keep() { kept_ = true; }

  private:
    fs::path folder_;
    bool kept_ = false;
};

int publish(const std::vector<std::string>& words) {
    const CommandLine line(words, {"product", "version", "brand", "from-version", "to-version",
                                   "parameters"},
                           {});
    line.expectOperands(1, "ARCHIVE");
    const fs::path source = line.operands().front();
    Offer offer = offerFromCommandLine(line);
    std::error_code error;
    if (!fs::is_regular_file(source, error)) {
        throw std::runtime_error("cannot read the archive " + source.string() + ": " +
                                 (fs::exists(source, error) ? "not a file" : "no such file"));
    }
    const std::unique_ptr<CatalogueStore> store = openStore(line);

    g_autofree char* updateId = g_uuid_string_random();
    offer.updateId = updateId;
    offer.fileName = source.stem().string() + ".zip";
    offer.name = source.stem().string();
    const fs::path folder = line.database().parent_path() / "archives" / offer.updateId;
    CopyGuard guard(folder);
    fs::create_directories(folder);
    // Checked and hashed as copied, so what is offered is what was checked.
    const fs::path copy = folder / offer.fileName;
    fs::copy_file(source, copy);
    if (!passesPreflight(copy, source.string())) {
        throw std::runtime_error("refused " + source.string() + ": it has errors (listed above)");
    }
    offer.archivePath = fs::absolute(copy).string();
    offer.hash = sha1HexOfFile(copy);
    offer.size = static_cast<std::int64_t>(fs::file_size(copy));
    offer.publishedAt = journalTimeNow();
    store->addOffer(offer);
    guard.keep();
    std::printf("%s\n", offer.updateId.c_str());
    return 0;
}

}  // namespace

const Command kPublishCommand{
    "publish",
    "publish ARCHIVE --product ID --version VERSION_TO [--brand BRAND] [--from-version MIN] "
    "[--to-version MAX] [--parameters P] [--db PATH]",
    kHelp, publish};

}  // namespace kora::service
