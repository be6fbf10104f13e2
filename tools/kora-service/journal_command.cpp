#include <glib.h>

#include <cstdio>
#include <memory>

#include "command_line.h"
#include "commands.h"
#include "json_text.h"

namespace kora::service {
namespace {

constexpr const char* kHelp = R"HELP(NAME
    kora-service journal - print the requests the service received

SYNOPSIS
    kora-service journal [--follow] [--json] [--db PATH]

DESCRIPTION
    Prints every journal entry, oldest first, one per line: when it arrived
    (UTC), the client's address, the operation ("-" when none could be read),
    the request's fields as a JSON object in the order of the request record
    (fields the request did not carry, or carried without text, are left out),
    and for a refused request "refused:" with the reason its fault gave.

OPTIONS
    --follow    keep printing new entries as a running service writes them,
                until interrupted
    --json      one JSON object per line instead, with the keys id,
                receivedAt, clientAddress, operation, fields and fault (null
                for an answered request)
    --db PATH   the database (default /var/lib/kora-service/catalogue.db)
)HELP";

constexpr std::size_t kPageEntries = 1000;
constexpr gulong kFollowPollMicroseconds = 500'000;

std::string entryJson(const JournalEntry& entry) {
    std::string json = "{\"id\":" + std::to_string(entry.id) + ",\"receivedAt\":";
    appendJsonString(json, entry.receivedAt);
    json += ",\"clientAddress\":";
    appendJsonString(json, entry.clientAddress);
    json += ",\"operation\":";
    appendJsonString(json, entry.operation);
    json += ",\"fields\":" + entry.fieldsJson + ",\"fault\":";
    if (entry.fault) {
        appendJsonString(json, *entry.fault);
    } else {
        json += "null";
    }
    return json + "}";
}

std::string entryLine(const JournalEntry& entry) {
    std::string line = entry.receivedAt + "  " + entry.clientAddress + "  " +
                       (entry.operation.empty() ? "-" : entry.operation) + "  " +
                       entry.fieldsJson;
    if (entry.fault) {
        line += "  refused: ";
        appendJsonString(line, *entry.fault);
    }
    return line;
}

// Prints the entries after `lastId` and returns the id of the last one printed.
std::int64_t printAfter(CatalogueStore& store, std::int64_t lastId, bool json) {
    for (;;) {
        const std::vector<JournalEntry> page = store.journalAfter(lastId, kPageEntries);
        for (const JournalEntry& entry : page) {
            std::printf("%s\n", (json ? entryJson(entry) : entryLine(entry)).c_str());
            lastId = entry.id;
        }
        if (page.size() < kPageEntries) break;
    }
    std::fflush(stdout);
    return lastId;
}

int printJournal(const std::vector<std::string>& words) {
    const CommandLine line(words, {}, {"follow", "json"});
    line.expectOperands(0, "");
    const std::unique_ptr<CatalogueStore> store = openStore(line);
    std::int64_t lastId = printAfter(*store, 0, line.flag("json"));
    // The service writes from another process, so new entries are looked for
    // in the database itself.
    while (line.flag("follow")) {
        g_usleep(kFollowPollMicroseconds);
        lastId = printAfter(*store, lastId, line.flag("json"));
    }
    return 0;
}

}  // namespace

const Command kJournalCommand{"journal", "journal [--follow] [--json] [--db PATH]", kHelp,
                              printJournal};

}  // namespace kora::service
