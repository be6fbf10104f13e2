#include "service_server.h"

#include <cstdio>
#include <stdexcept>

#include "service_answers.h"
#include "service_limits.h"

namespace kora::service {
namespace {

std::string addressText(GSocketAddress* address, bool withPort) {
    if (!G_IS_INET_SOCKET_ADDRESS(address)) return "unknown";
    auto* inet = G_INET_SOCKET_ADDRESS(address);
    GInetAddress* ip = g_inet_socket_address_get_address(inet);
    g_autofree char* text = g_inet_address_to_string(ip);
    if (!withPort) return text;
    const bool v6 = g_inet_address_get_family(ip) == G_SOCKET_FAMILY_IPV6;
    return (v6 ? "[" + std::string(text) + "]" : std::string(text)) + ":" +
           std::to_string(g_inet_socket_address_get_port(inet));
}

std::string clientAddress(SoupServerMessage* message) {
    return addressText(soup_server_message_get_remote_address(message), false);
}

void sendAnswer(SoupServerMessage* message, const ServiceAnswer& answer) {
    soup_server_message_set_status(message, answer.status, nullptr);
    soup_server_message_set_response(message, answer.contentType.c_str(), SOUP_MEMORY_COPY,
                                     answer.body.data(), answer.body.size());
}

void sendStatus(SoupServerMessage* message, unsigned status) {
    soup_server_message_set_status(message, status, nullptr);
}

}  // namespace

ServiceServer::ServiceServer(CatalogueStore& store, std::optional<std::string> publicUrl)
    : store_(store),
      publicUrl_(std::move(publicUrl)),
      journal_(store),
      server_(soup_server_new("server-header", "kora-service", nullptr)) {
    if (publicUrl_) {
        while (publicUrl_->ends_with('/')) publicUrl_->pop_back();
    }
    soup_server_add_early_handler(server_, kEndpointPath, refuseLargeBodies, this, nullptr);
    soup_server_add_handler(server_, kEndpointPath, handleEndpoint, this, nullptr);
    soup_server_add_handler(server_, "/archives", handleArchive, this, nullptr);
}

ServiceServer::~ServiceServer() {
    soup_server_disconnect(server_);
    g_object_unref(server_);
}

std::string ServiceServer::listen(const std::string& address, unsigned port) {
    g_autoptr(GSocketAddress) socketAddress =
        g_inet_socket_address_new_from_string(address.c_str(), port);
    if (socketAddress == nullptr) {
        throw std::runtime_error("'" + address + "' is not an IP address");
    }
    g_autoptr(GError) error = nullptr;
    if (!soup_server_listen(server_, socketAddress, static_cast<SoupServerListenOptions>(0),
                            &error)) {
        throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) +
                                 ": " + error->message);
    }
    GSList* uris = soup_server_get_uris(server_);
    g_autofree char* base = uris ? g_uri_to_string(static_cast<GUri*>(uris->data)) : nullptr;
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    std::string url = base ? base : "";
    while (url.ends_with('/')) url.pop_back();
    return url + kEndpointPath;
}

// Runs once the request's headers are in, before its body is read: a body
// over the cap, or of unknown length, is answered without reading it.
void ServiceServer::refuseLargeBodies(SoupServer*, SoupServerMessage* message, const char*,
                                      GHashTable*, gpointer self) {
    auto* server = static_cast<ServiceServer*>(self);
    if (std::string_view(soup_server_message_get_method(message)) != "POST") return;
    SoupMessageHeaders* headers = soup_server_message_get_request_headers(message);
    const bool knownLength =
        soup_message_headers_get_encoding(headers) == SOUP_ENCODING_CONTENT_LENGTH;
    const goffset length = soup_message_headers_get_content_length(headers);
    if (knownLength && length >= 0 && static_cast<std::size_t>(length) <= kMaxRequestBodyBytes) {
        return;
    }
    const std::string reason =
        knownLength ? "The request body of " + std::to_string(length) + " bytes is over the " +
                          std::to_string(kMaxRequestBodyBytes) + "-byte limit"
                    : "The request must state its Content-Length";
    const RequestContext context{clientAddress(message), ""};
    ServiceAnswer answer = refusal(knownLength ? 413 : 411, reason, context);
    server->journal_.append(std::move(answer.journalEntry));
    sendAnswer(message, answer);
}

void ServiceServer::handleEndpoint(SoupServer*, SoupServerMessage* message, const char*,
                                   GHashTable*, gpointer self) {
    // Already answered by the early handler.
    if (soup_server_message_get_status(message) != 0) return;
    if (std::string_view(soup_server_message_get_method(message)) != "POST") {
        soup_message_headers_replace(soup_server_message_get_response_headers(message), "Allow",
                                     "POST");
        sendStatus(message, SOUP_STATUS_METHOD_NOT_ALLOWED);
        return;
    }
    // No exception may cross back into libsoup.
    try {
        static_cast<ServiceServer*>(self)->answerEndpoint(message);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kora-service: cannot answer a request: %s\n", error.what());
        ServiceAnswer answer;
        answer.status = 500;
        answer.contentType = "text/xml; charset=utf-8";
        sendAnswer(message, answer);
    }
}

void ServiceServer::answerEndpoint(SoupServerMessage* message) {
    SoupMessageBody* body = soup_server_message_get_request_body(message);
    g_autoptr(GBytes) bytes = soup_message_body_flatten(body);
    gsize size = 0;
    const auto* data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
    const RequestContext context{clientAddress(message), publicBaseUrl(message)};
    ServiceAnswer answer = answerRequest(std::string_view(data ? data : "", size), context, store_);
    journal_.append(std::move(answer.journalEntry));
    sendAnswer(message, answer);
}

std::string ServiceServer::publicBaseUrl(SoupServerMessage* message) const {
    if (publicUrl_) return *publicUrl_;
    return "http://" + addressText(soup_server_message_get_local_address(message), true);
}

void ServiceServer::handleArchive(SoupServer*, SoupServerMessage* message, const char* path,
                                  GHashTable*, gpointer self) {
    const std::string_view method = soup_server_message_get_method(message);
    if (method != "GET" && method != "HEAD") {
        sendStatus(message, SOUP_STATUS_METHOD_NOT_ALLOWED);
        return;
    }
    try {
        static_cast<ServiceServer*>(self)->serveArchive(message, path);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kora-service: cannot serve %s: %s\n", path, error.what());
        sendStatus(message, SOUP_STATUS_INTERNAL_SERVER_ERROR);
    }
}

// "/archives/<UpdateID>/<file name>"; the file name must be the offer's, so
// a client never saves an archive under another name than the one its folder
// inside is called by.
void ServiceServer::serveArchive(SoupServerMessage* message, const std::string& path) {
    constexpr std::string_view prefix = "/archives/";
    const std::size_t slash = path.find('/', prefix.size());
    const std::optional<Offer> offer =
        path.starts_with(prefix) && slash != std::string::npos
            ? store_.offer(path.substr(prefix.size(), slash - prefix.size()))
            : std::nullopt;
    if (!offer || archivePath(*offer) != path) {
        sendStatus(message, SOUP_STATUS_NOT_FOUND);
        return;
    }
    g_autoptr(GError) error = nullptr;
    g_autoptr(GMappedFile) file = g_mapped_file_new(offer->archivePath.c_str(), FALSE, &error);
    if (file == nullptr) {
        std::fprintf(stderr, "kora-service: the archive of %s is gone: %s\n",
                     offer->updateId.c_str(), error->message);
        sendStatus(message, SOUP_STATUS_NOT_FOUND);
        return;
    }
    g_autoptr(GBytes) bytes = g_mapped_file_get_bytes(file);
    SoupMessageHeaders* headers = soup_server_message_get_response_headers(message);
    g_autoptr(GHashTable) parameters = g_hash_table_new(g_str_hash, g_str_equal);
    g_hash_table_insert(parameters, const_cast<char*>("filename"),
                        const_cast<char*>(offer->fileName.c_str()));
    soup_message_headers_set_content_disposition(headers, "attachment", parameters);
    soup_message_headers_set_content_type(headers, "application/zip", nullptr);
    soup_message_body_append_bytes(soup_server_message_get_response_body(message), bytes);
    sendStatus(message, SOUP_STATUS_OK);
}

}  // namespace kora::service
