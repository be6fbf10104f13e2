#include <cstdio>
#include <memory>

#include "command_line.h"
#include "commands.h"
#include "json_text.h"

namespace kora::service {
namespace {

constexpr const char* kHelp = R"HELP(NAME
    kora-service offers - list the offered updates

SYNOPSIS
    kora-service offers [--json] [--db PATH]

DESCRIPTION
    Prints every offered update in the order they were published: UpdateID,
    product, brand ("*" for every brand), the range of installed versions it
    applies to ("*" for an open end), the version it installs, its size in
    bytes and its SHA-1 digest. Nothing is printed when nothing is offered.

OPTIONS
    --json      one JSON object per line instead, with the keys updateId,
                productId, brand, fromVersion, toVersion, versionTo, parameters,
                name, hash, size, fileName, archivePath and publishedAt (absent
                values are null)
    --db PATH   the database (default /var/lib/kora-service/catalogue.db)
)HELP";

void addKey(std::string& json, const char* key) {
    if (json.size() > 1) json += ',';
    appendJsonString(json, key);
    json += ':';
}

void addText(std::string& json, const char* key, const std::optional<std::string>& value) {
    addKey(json, key);
    if (value) {
        appendJsonString(json, *value);
    } else {
        json += "null";
    }
}

std::string offerJson(const Offer& offer) {
    std::string json = "{";
    addText(json, "updateId", offer.updateId);
    addText(json, "productId", offer.productId);
    addText(json, "brand", offer.brand);
    addText(json, "fromVersion", offer.fromVersion);
    addText(json, "toVersion", offer.toVersion);
    addText(json, "versionTo", offer.versionTo);
    addText(json, "parameters", offer.parameters);
    addText(json, "name", offer.name);
    addText(json, "hash", offer.hash);
    addKey(json, "size");
    json += std::to_string(offer.size);
    addText(json, "fileName", offer.fileName);
    addText(json, "archivePath", offer.archivePath);
    addText(json, "publishedAt", offer.publishedAt);
    return json + "}";
}

std::string offerLine(const Offer& offer) {
    const std::string range =
        offer.fromVersion.value_or("*") + ".." + offer.toVersion.value_or("*");
    return offer.updateId + "  " + offer.productId + "  " + offer.brand.value_or("*") + "  " +
           range + " -> " + offer.versionTo + "  " + std::to_string(offer.size) + "  " +
           offer.hash;
}

int listOffers(const std::vector<std::string>& words) {
    const CommandLine line(words, {}, {"json"});
    line.expectOperands(0, "");
    const std::unique_ptr<CatalogueStore> store = openStore(line);
    for (const Offer& offer : store->offers()) {
        std::printf("%s\n", (line.flag("json") ? offerJson(offer) : offerLine(offer)).c_str());
    }
    return 0;
}

}  // namespace

const Command kOffersCommand{"offers", "offers [--json] [--db PATH]", kHelp, listOffers};

}  // namespace kora::service
