#include "sqlite_catalogue_store.h"

#include "schema_migrations.h"
#include "sqlite_statement.h"

namespace kora::service {
namespace {

constexpr const char* kOfferColumns =
    "update_id, product_id, brand, from_version, to_version, version_to, parameters, name, "
    "hash, size, archive_path, file_name, published_at";

std::string offerQuery(const char* condition) {
    return std::string("SELECT ") + kOfferColumns + " FROM offers " + condition;
}

Offer readOffer(const SqliteStatement& row) {
    return Offer{row.text(0),           row.text(1),         row.optionalText(2),
                 row.optionalText(3),   row.optionalText(4), row.text(5),
                 row.optionalText(6),   row.text(7),         row.text(8),
                 row.integer(9),        row.text(10),        row.text(11),
                 row.text(12)};
}

std::vector<Offer> readOffers(SqliteStatement& statement) {
    std::vector<Offer> offers;
    while (statement.step()) offers.push_back(readOffer(statement));
    return offers;
}

// Another process (publish beside serve) may hold the write lock for a moment.
constexpr int kBusyTimeoutMs = 5000;

}  // namespace

// Prepared once: a Check and its journal entry cost no SQL parsing.
struct SqliteCatalogueStore::Statements {
    explicit Statements(sqlite3* db)
        : insertOffer(db,
                      "INSERT INTO offers (update_id, product_id, brand, from_version, to_version, "
                      "version_to, parameters, name, hash, size, archive_path, file_name, "
                      "published_at) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
          deleteOffer(db, "DELETE FROM offers WHERE update_id = ?"),
          offerById(db, offerQuery("WHERE update_id = ?").c_str()),
          allOffers(db, offerQuery("ORDER BY published_at, rowid").c_str()),
          offersByProduct(db, offerQuery("WHERE product_id = ?").c_str()),
          insertJournal(db,
                        "INSERT INTO journal (received_at, operation, client_address, fields, "
                        "fault) VALUES (?, ?, ?, ?, ?)"),
          journalAfter(db,
                       "SELECT id, received_at, operation, client_address, fields, fault "
                       "FROM journal WHERE id > ? ORDER BY id LIMIT ?"),
          begin(db, "BEGIN IMMEDIATE"),
          commit(db, "COMMIT"),
          rollback(db, "ROLLBACK") {}

    SqliteStatement insertOffer;
    SqliteStatement deleteOffer;
    SqliteStatement offerById;
    SqliteStatement allOffers;
    SqliteStatement offersByProduct;
    SqliteStatement insertJournal;
    SqliteStatement journalAfter;
    SqliteStatement begin;
    SqliteStatement commit;
    SqliteStatement rollback;
};

SqliteCatalogueStore::SqliteCatalogueStore(const std::filesystem::path& file) {
    const int status = sqlite3_open_v2(file.c_str(), &db_,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (status != SQLITE_OK) {
        const std::string reason = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(status);
        sqlite3_close(db_);
        throw StoreError("cannot open the database " + file.string() + ": " + reason);
    }
    try {
        sqlite3_busy_timeout(db_, kBusyTimeoutMs);
        execute("PRAGMA journal_mode = WAL");
        // With the write-ahead log, NORMAL loses no committed transaction on a
        // crash of the program, only on a power cut, and spares a sync per commit.
        execute("PRAGMA synchronous = NORMAL");
        execute("PRAGMA foreign_keys = ON");
        migrate();
        statements_ = std::make_unique<Statements>(db_);
    } catch (const StoreError& error) {
        sqlite3_close(db_);
        throw StoreError(file.string() + ": " + error.what());
    }
}

SqliteCatalogueStore::~SqliteCatalogueStore() {
    statements_.reset();
    sqlite3_close(db_);
}

void SqliteCatalogueStore::execute(const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string reason = message ? message : sqlite3_errmsg(db_);
        sqlite3_free(message);
        throw StoreError(reason);
    }
}

int SqliteCatalogueStore::schemaVersion() {
    SqliteStatement query(db_, "SELECT coalesce(max(version), 0) FROM schema_migrations");
    return query.step() ? static_cast<int>(query.integer(0)) : 0;
}

// Each step runs in its own transaction together with its row in
// schema_migrations, so a database is never left half migrated.
void SqliteCatalogueStore::migrate() {
    execute(
        "CREATE TABLE IF NOT EXISTS schema_migrations ("
        "version INTEGER PRIMARY KEY, name TEXT NOT NULL, applied_at TEXT NOT NULL)");
    const int current = schemaVersion();
    for (const SchemaMigration& migration : schemaMigrations()) {
        if (migration.version <= current) continue;
        execute("BEGIN IMMEDIATE");
        try {
            execute(migration.sql);
            SqliteStatement record(db_,
                                   "INSERT INTO schema_migrations (version, name, applied_at) "
                                   "VALUES (?, ?, strftime('%Y-%m-%dT%H:%M:%SZ', 'now'))");
            record.bind(std::int64_t{migration.version}, std::string(migration.name)).step();
            execute("COMMIT");
        } catch (const StoreError& error) {
            execute("ROLLBACK");
            throw StoreError(std::string("schema step ") + migration.name + ": " + error.what());
        }
    }
}

void SqliteCatalogueStore::addOffer(const Offer& offer) {
    if (this->offer(offer.updateId)) throw StoreError("an offer " + offer.updateId + " exists");
    statements_->insertOffer
        .bind(offer.updateId, offer.productId, offer.brand, offer.fromVersion, offer.toVersion,
              offer.versionTo, offer.parameters, offer.name, offer.hash, offer.size,
              offer.archivePath, offer.fileName, offer.publishedAt)
        .step();
}

bool SqliteCatalogueStore::removeOffer(const std::string& updateId) {
    statements_->deleteOffer.bind(updateId).step();
    return sqlite3_changes(db_) > 0;
}

std::optional<Offer> SqliteCatalogueStore::offer(const std::string& updateId) {
    std::vector<Offer> found = readOffers(statements_->offerById.bind(updateId));
    if (found.empty()) return std::nullopt;
    return found.front();
}

std::vector<Offer> SqliteCatalogueStore::offers() {
    return readOffers(statements_->allOffers.bind());
}

std::vector<Offer> SqliteCatalogueStore::offersForProduct(const std::string& productId) {
    return readOffers(statements_->offersByProduct.bind(productId));
}

void SqliteCatalogueStore::appendToJournal(const std::vector<JournalEntry>& entries) {
    statements_->begin.bind().step();
    try {
        for (const JournalEntry& entry : entries) {
            statements_->insertJournal
                .bind(entry.receivedAt, entry.operation, entry.clientAddress, entry.fieldsJson,
                      entry.fault)
                .step();
        }
        statements_->commit.bind().step();
    } catch (const StoreError&) {
        statements_->rollback.bind().step();
        throw;
    }
}

std::vector<JournalEntry> SqliteCatalogueStore::journalAfter(std::int64_t afterId,
                                                             std::size_t limit) {
    SqliteStatement& query = statements_->journalAfter;
    query.bind(afterId, static_cast<std::int64_t>(limit));
    std::vector<JournalEntry> entries;
    while (query.step()) {
        entries.push_back({query.integer(0), query.text(1), query.text(2), query.text(3),
                           query.text(4), query.optionalText(5)});
    }
    return entries;
}

}  // namespace kora::service
