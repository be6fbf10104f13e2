#include <glib.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "journal_queue.h"
#include "json_text.h"
#include "sqlite_catalogue_store.h"
#include "support/temp_dir.h"

namespace kora::service {
namespace {

JournalEntry entry(std::string operation) {
    return JournalEntry{0, "2026-01-01T00:00:00Z", std::move(operation), "127.0.0.1", "{}", {}};
}

TEST(ASqliteCatalogueStore, MigratesADatabaseOfTheFirstSchemaKeepingItsOffers) {
    const TempDir folder;
    const auto file = folder.path() / "old.db";
    {
        // A database as the first schema step left it: offers, no journal.
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
        const char* sql =
            "CREATE TABLE schema_migrations (version INTEGER PRIMARY KEY, name TEXT NOT NULL, "
            "applied_at TEXT NOT NULL);"
            "INSERT INTO schema_migrations VALUES (1, '001_offers.sql', 'then');"
            "CREATE TABLE offers (update_id TEXT PRIMARY KEY, product_id TEXT NOT NULL, brand TEXT,"
            " from_version TEXT, to_version TEXT, version_to TEXT NOT NULL, parameters TEXT,"
            " name TEXT NOT NULL, hash TEXT NOT NULL, size BIGINT NOT NULL,"
            " archive_path TEXT NOT NULL, file_name TEXT NOT NULL, published_at TEXT NOT NULL);"
            "INSERT INTO offers VALUES ('U', 'P', NULL, NULL, NULL, '2', NULL, 'A', 'H', 1,"
            " '/a/A.zip', 'A.zip', 'then');";
        ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    }
    SqliteCatalogueStore store(file);
    ASSERT_EQ(store.offers().size(), 1u);
    EXPECT_EQ(store.offersForProduct("P").front().archivePath, "/a/A.zip");
    store.appendToJournal({entry("Check"), entry("Uninstall")});
    const auto entries = store.journalAfter(0, 10);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1].operation, "Uninstall");
    EXPECT_EQ(store.journalAfter(entries[0].id, 10).size(), 1u);
    EXPECT_THROW(store.addOffer(store.offers().front()), StoreError);
}

// A store whose journal refuses writes until told otherwise.
class RefusingStore final : public CatalogueStore {
  public:
    bool refusing = true;
    std::vector<std::vector<JournalEntry>> batches;

    void addOffer(const Offer&) override {}
    bool removeOffer(const std::string&) override { return false; }
    std::optional<Offer> offer(const std::string&) override { return std::nullopt; }
    std::vector<Offer> offers() override { return {}; }
    std::vector<Offer> offersForProduct(const std::string&) override { return {}; }
    void appendToJournal(const std::vector<JournalEntry>& entries) override {
        if (refusing) throw StoreError("database is locked");
        batches.push_back(entries);
    }
    std::vector<JournalEntry> journalAfter(std::int64_t, std::size_t) override { return {}; }
};

TEST(AJournalQueue, WritesABatchOnceTheDatabaseTakesItAgain) {
    RefusingStore store;
    {
        JournalQueue queue(store);
        queue.append(entry("Check"));
        queue.append(entry("InstallComplete"));
        EXPECT_FALSE(queue.flush());
        store.refusing = false;
        // The queue's own timer retries.
        while (store.batches.empty()) g_main_context_iteration(nullptr, TRUE);
        ASSERT_EQ(store.batches.size(), 1u);
        EXPECT_EQ(store.batches[0].size(), 2u);
        queue.append(entry("Uninstall"));
    }
    ASSERT_EQ(store.batches.size(), 2u) << "the last entry is written when the queue goes";
    EXPECT_EQ(store.batches[1][0].operation, "Uninstall");
}

TEST(JsonText, EscapesWhatJsonCannotCarryAndKeepsUtf8) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain", R"("plain")"},
        {"a\"b\\c", R"("a\"b\\c")"},
        {"line\nfeed\ttab\x01", R"("line\nfeed\ttab\u0001")"},
        {"h\xc3\xa4n", "\"h\xc3\xa4n\""},
        {"bad\xff", R"("bad\ufffd")"},
        {"cut\xe2\x82", R"("cut\ufffd\ufffd")"},
    };
    for (const auto& [text, expected] : rows) {
        std::string json;
        appendJsonString(json, text);
        EXPECT_EQ(json, expected);
    }
}

}  // namespace
}  // namespace kora::service
