#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kora::service {

// One offered update, as published.
struct Offer {
    std::string updateId;
    std::string productId;
    std::optional<std::string> brand;        // offered to every brand when absent
    std::optional<std::string> fromVersion;  // lowest installed version it applies to
    std::optional<std::string> toVersion;    // highest installed version it applies to
    std::string versionTo;                   // the version it installs
    std::optional<std::string> parameters;
    std::string name;
    std::string hash;  // SHA-1 of the archive, hexadecimal
    std::int64_t size = 0;
    std::string archivePath;  // where the service keeps its copy
    std::string fileName;     // the name clients must save it under
    std::string publishedAt;

    bool operator==(const Offer&) const = default;
};

// One request as received.
struct JournalEntry {
    std::int64_t id = 0;  // given by the store, increasing
    std::string receivedAt;
    std::string operation;
    std::string clientAddress;
    std::string fieldsJson;            // the request's present fields, a JSON object
    std::optional<std::string> fault;  // why it was refused; absent when answered
};

// A store that cannot be opened, read or written.
class StoreError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The service's whole state: the catalogue of offers and the journal. Every
// operation throws StoreError when the storage fails.
class CatalogueStore {
  public:
    virtual ~CatalogueStore() = default;

    // Throws StoreError when an offer with the same UpdateID exists.
    virtual void addOffer(const Offer& offer) = 0;
    // False when there was no such offer.
    virtual bool removeOffer(const std::string& updateId) = 0;
    virtual std::optional<Offer> offer(const std::string& updateId) = 0;
    // In the order they were published.
    virtual std::vector<Offer> offers() = 0;
    virtual std::vector<Offer> offersForProduct(const std::string& productId) = 0;

    // Appends the entries in one transaction: all of them or none.
    virtual void appendToJournal(const std::vector<JournalEntry>& entries) = 0;
    // Entries with an id above `afterId`, oldest first, at most `limit`.
    virtual std::vector<JournalEntry> journalAfter(std::int64_t afterId, std::size_t limit) = 0;
};

}  // namespace kora::service
