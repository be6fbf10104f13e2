#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <memory>

#include "catalogue_store.h"

namespace kora::service {

// The catalogue and journal in one SQLite file, in write-ahead-log mode so that
// `publish` or `journal` in another process never waits for a serving one.
class SqliteCatalogueStore final : public CatalogueStore {
  public:
    // Opens or creates the file and brings its schema up to date. Throws
    // StoreError when the file cannot be opened or is not such a database.
    explicit SqliteCatalogueStore(const std::filesystem::path& file);
    ~SqliteCatalogueStore() override;

    void addOffer(const Offer& offer) override;
    bool removeOffer(const std::string& updateId) override;
    std::optional<Offer> offer(const std::string& updateId) override;
    std::vector<Offer> offers() override;
    std::vector<Offer> offersForProduct(const std::string& productId) override;

    void appendToJournal(const std::vector<JournalEntry>& entries) override;
    std::vector<JournalEntry> journalAfter(std::int64_t afterId, std::size_t limit) override;

  private:
    struct Statements;

    void execute(const char* sql);
    void migrate();
    int schemaVersion();

    sqlite3* db_ = nullptr;
    std::unique_ptr<Statements> statements_;
};

}  // namespace kora::service
