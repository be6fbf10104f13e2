#pragma once

#include <glib.h>
#include <libsoup/soup.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kora::testing_support {

// What the loopback server received for one request.
struct ReceivedRequest {
    std::string method;
    std::string path;
    std::map<std::string, std::string> headers;
    std::string body;
};

// What it answers. An empty content type sends no Content-Type header. Every
// member has a default, so designated initializers may name any subset.
struct ScriptedReply {
    unsigned status = 200;
    std::string contentType = "text/xml; charset=utf-8";
    std::string body{};
    std::vector<std::pair<std::string, std::string>> headers{};
    bool chunked = false;
    unsigned delayMs = 0;
    // When set, the body goes out chunked, trickleBytes at a time, one piece
    // every trickleMs: a reply that never stays quiet long enough to time out.
    unsigned trickleMs = 0;
    std::size_t trickleBytes = 1;
};

inline constexpr const char* kSoap11Namespace = "http://schemas.xmlsoap.org/soap/envelope/";

// A SOAP 1.1 reply envelope around `body`.
inline std::string soap11Envelope(const std::string& body) {
    return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope xmlns:soap=\"") +
           kSoap11Namespace + "\"><soap:Body>" + body + "</soap:Body></soap:Envelope>";
}

// An HTTP server on 127.0.0.1 (any free port) served from the default main
// context, answering every request with what `respond` returns.
class LoopbackSoapServer {
  public:
    using Responder = std::function<ScriptedReply(const ReceivedRequest&)>;

    LoopbackSoapServer() : server_(soup_server_new(nullptr, nullptr)) {
        soup_server_add_handler(server_, nullptr, &LoopbackSoapServer::handle, this, nullptr);
        GError* error = nullptr;
        soup_server_listen_local(server_, 0, SOUP_SERVER_LISTEN_IPV4_ONLY, &error);
        g_assert_no_error(error);
        GSList* uris = soup_server_get_uris(server_);
        port_ = g_uri_get_port(static_cast<GUri*>(uris->data));
        g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    }

    ~LoopbackSoapServer() {
        for (guint timer : timers_) {
            if (g_main_context_find_source_by_id(nullptr, timer) != nullptr) g_source_remove(timer);
        }
        soup_server_disconnect(server_);
        g_object_unref(server_);
    }

    LoopbackSoapServer(const LoopbackSoapServer&) = delete;
    LoopbackSoapServer& operator=(const LoopbackSoapServer&) = delete;

    SoupServer* server() const { return server_; }
    std::string url() const {
        return "http://127.0.0.1:" + std::to_string(port_) + "/telso/cm/webservices/kora2.asmx";
    }

    Responder respond = [](const ReceivedRequest&) { return ScriptedReply{}; };
    void answerAlways(ScriptedReply reply) {
        respond = [reply](const ReceivedRequest&) { return reply; };
    }
    std::vector<ReceivedRequest> requests;

  private:
    static void handle(SoupServer*, SoupServerMessage* message, const char* path, GHashTable*,
                       gpointer data) {
        auto* self = static_cast<LoopbackSoapServer*>(data);
        ReceivedRequest request{soup_server_message_get_method(message), path, {}, {}};
        SoupMessageHeadersIter iter;
        soup_message_headers_iter_init(&iter, soup_server_message_get_request_headers(message));
        const char* name = nullptr;
        const char* value = nullptr;
        while (soup_message_headers_iter_next(&iter, &name, &value)) request.headers[name] = value;
        SoupMessageBody* body = soup_server_message_get_request_body(message);
        request.body.assign(body->data ? body->data : "", static_cast<size_t>(body->length));
        self->requests.push_back(request);
        self->answer(message, self->respond(request));
    }

    void answer(SoupServerMessage* message, const ScriptedReply& reply) {
        soup_server_message_set_status(message, reply.status, nullptr);
        SoupMessageHeaders* headers = soup_server_message_get_response_headers(message);
        for (const auto& [name, value] : reply.headers) {
            soup_message_headers_append(headers, name.c_str(), value.c_str());
        }
        if (reply.chunked) soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
        if (!reply.contentType.empty()) {
            soup_message_headers_replace(headers, "Content-Type", reply.contentType.c_str());
        }
        if (reply.trickleMs > 0) return trickle(message, reply);
        soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_COPY,
                                 reply.body.data(), reply.body.size());
        if (reply.delayMs == 0) return;
        soup_server_message_pause(message);
        timers_.push_back(g_timeout_add_full(
            G_PRIORITY_DEFAULT, reply.delayMs,
            [](gpointer data) -> gboolean {
                soup_server_message_unpause(static_cast<SoupServerMessage*>(data));
                return G_SOURCE_REMOVE;
            },
            g_object_ref(message), g_object_unref));
    }

    // One piece of the body per tick until it is all out or the client went.
    struct Trickle {
        SoupServerMessage* message;
        std::string rest;
        std::size_t pieceBytes;
        bool clientGone = false;
    };

    void trickle(SoupServerMessage* message, const ScriptedReply& reply) {
        soup_message_headers_set_encoding(soup_server_message_get_response_headers(message),
                                          SOUP_ENCODING_CHUNKED);
        auto* state = new Trickle{SOUP_SERVER_MESSAGE(g_object_ref(message)), reply.body,
                                  std::max<std::size_t>(reply.trickleBytes, 1)};
        const auto gone = +[](SoupServerMessage*, gpointer data) {
            static_cast<Trickle*>(data)->clientGone = true;
        };
        g_signal_connect(message, "finished", G_CALLBACK(gone), state);
        g_signal_connect(message, "disconnected", G_CALLBACK(gone), state);
        soup_server_message_pause(message);
        timers_.push_back(g_timeout_add_full(
            G_PRIORITY_DEFAULT, reply.trickleMs,
            [](gpointer data) -> gboolean {
                auto* state = static_cast<Trickle*>(data);
                if (state->clientGone) return G_SOURCE_REMOVE;
                SoupMessageBody* body = soup_server_message_get_response_body(state->message);
                const std::string piece = state->rest.substr(0, state->pieceBytes);
                state->rest.erase(0, piece.size());
                soup_message_body_append(body, SOUP_MEMORY_COPY, piece.data(), piece.size());
                if (state->rest.empty()) soup_message_body_complete(body);
                soup_server_message_unpause(state->message);
                return state->rest.empty() ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
            },
            state,
            [](gpointer data) {
                auto* state = static_cast<Trickle*>(data);
                g_signal_handlers_disconnect_by_data(state->message, state);
                g_object_unref(state->message);
                delete state;
            }));
    }

    SoupServer* server_;
    unsigned port_ = 0;
    std::vector<guint> timers_;
};

}  // namespace kora::testing_support
