#pragma once

#include <libsoup/soup.h>

#include <optional>
#include <string>

#include "catalogue_store.h"
#include "journal_queue.h"

namespace kora::service {

// The service's path, the same as in the daemon's built-in address.
inline constexpr const char* kEndpointPath = "/telso/cm/webservices/kora2.asmx";

// The HTTP side of kora-service on the default main context: the eight
// operations at the endpoint path and the published archives under
// "/archives/".
class ServiceServer {
  public:
    // `publicUrl` ("http://updates.example.com"), when given, is where clients
    // reach the archives; otherwise the address they connected to is used.
    ServiceServer(CatalogueStore& store, std::optional<std::string> publicUrl);
    ~ServiceServer();
    ServiceServer(const ServiceServer&) = delete;
    ServiceServer& operator=(const ServiceServer&) = delete;

    // Listens on an IP address and port (0 picks a free one) and returns the
    // endpoint's URL. Throws std::runtime_error when it cannot.
    std::string listen(const std::string& address, unsigned port);

    JournalQueue& journal() { return journal_; }

  private:
    static void refuseLargeBodies(SoupServer*, SoupServerMessage* message, const char* path,
                                  GHashTable*, gpointer self);
    static void handleEndpoint(SoupServer*, SoupServerMessage* message, const char* path,
                               GHashTable*, gpointer self);
    static void handleArchive(SoupServer*, SoupServerMessage* message, const char* path,
                              GHashTable*, gpointer self);

    void answerEndpoint(SoupServerMessage* message);
    void serveArchive(SoupServerMessage* message, const std::string& path);
    std::string publicBaseUrl(SoupServerMessage* message) const;

    CatalogueStore& store_;
    std::optional<std::string> publicUrl_;
    JournalQueue journal_;
    SoupServer* server_;
};

}  // namespace kora::service
