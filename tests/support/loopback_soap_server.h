#pragma once

#include <glib.h>
#include <gtest/gtest.h>
#include <libsoup/soup.h>
#include <strings.h>

#include <algorithm>
#include <deque>
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
    // When set, the reply waits until the test calls releaseHeldReplies.
    bool held = false;
    // When set, the body goes out chunked, trickleBytes at a time, one piece
    // every trickleMs: a reply that never stays quiet long enough to time out.
    unsigned trickleMs = 0;
    std::size_t trickleBytes = 1;
};

// One request a strict server waits for: where it goes, the headers it must
// carry (with these values) and those it must not, and what it is answered.
struct ExpectedRequest {
    std::string method = "POST";
    std::string path = "/telso/cm/webservices/kora2.asmx";
    std::map<std::string, std::string> headers{};
    std::vector<std::string> absentHeaders{};
    ScriptedReply reply{};
};

inline constexpr const char* kSoap11Namespace = "http://schemas.xmlsoap.org/soap/envelope/";

// A SOAP 1.1 reply envelope around `body`.
inline std::string soap11Envelope(const std::string& body) {
    return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope xmlns:soap=\"") +
           kSoap11Namespace + "\"><soap:Body>" + body + "</soap:Body></soap:Envelope>";
}

// A reply to Check that offers one update.
inline const std::string kCheckResponse = soap11Envelope(
    "<CheckResponse xmlns=\"http://kora.olvara.com/ns/KORA\"><CheckResult>"
    "<UpdateID>u-1</UpdateID></CheckResult></CheckResponse>");

// An HTTP server on 127.0.0.1 (any free port) served from the default main
// context, answering every request with what `respond` returns.
//
// Once a test has declared a request with `expect`, the server is strict: each
// request must be the next one declared, or the test fails, and so does a
// declared request that has not come when the server is destroyed.
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
        for (const ExpectedRequest& missing : expected_)
            ADD_FAILURE() << "the expected request " << missing.method << " " << missing.path
                          << " never came";
        for (SoupServerMessage* message : held_) g_object_unref(message);
        for (guint timer : timers_) {
            if (g_main_context_find_source_by_id(nullptr, timer) != nullptr) g_source_remove(timer);
        }
        soup_server_disconnect(server_);
        g_object_unref(server_);
    }

    LoopbackSoapServer(const LoopbackSoapServer&) = delete;
    LoopbackSoapServer& operator=(const LoopbackSoapServer&) = delete;

    SoupServer* server() const { return server_; }
    std::string url() const { return urlFor("/telso/cm/webservices/kora2.asmx"); }
    std::string urlFor(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

    Responder respond = [](const ReceivedRequest&) { return ScriptedReply{}; };
    void answerAlways(ScriptedReply reply) {
        respond = [reply](const ReceivedRequest&) { return reply; };
    }
    std::vector<ReceivedRequest> requests;

    void expect(ExpectedRequest request) {
        strict_ = true;
        expected_.push_back(std::move(request));
    }

    void releaseHeldReplies() {
        for (SoupServerMessage* message : held_) {
            soup_server_message_unpause(message);
            g_object_unref(message);
        }
        held_.clear();
    }

    // Replies that are over, and those of them whose client went away before
    // the whole reply was sent. (A paused reply notices only when it goes on.)
    int finishedReplies = 0;
    int abandonedReplies = 0;

  private:
    static const std::string* header(const ReceivedRequest& request, const std::string& name) {
        for (const auto& [key, value] : request.headers)
            if (strcasecmp(key.c_str(), name.c_str()) == 0) return &value;
        return nullptr;
    }

    // The reply to a request in strict mode; the test fails when the request
    // is not the next one expected, or lacks what it must carry.
    ScriptedReply strictReply(const ReceivedRequest& request) {
        if (expected_.empty()) {
            ADD_FAILURE() << "unexpected request " << request.method << " " << request.path;
            return {.status = 500, .body = "unexpected request"};
        }
        const ExpectedRequest next = expected_.front();
        expected_.pop_front();
        EXPECT_EQ(request.method, next.method);
        EXPECT_EQ(request.path, next.path);
        for (const auto& [name, value] : next.headers) {
            const std::string* received = header(request, name);
            EXPECT_TRUE(received != nullptr && *received == value)
                << "header " << name << ": expected \"" << value << "\", got "
                << (received ? "\"" + *received + "\"" : "none");
        }
        for (const std::string& name : next.absentHeaders)
            EXPECT_EQ(header(request, name), nullptr) << "header " << name << " was sent";
        return next.reply;
    }

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
        self->watchForAbandon(message);
        self->answer(message, self->strict_ ? self->strictReply(request) : self->respond(request));
    }

    // A message that finishes before its whole reply was written was dropped
    // by the client (or by the server going away).
    void watchForAbandon(SoupServerMessage* message) {
        static const char* const kWritten = "loopback-reply-written";
        g_signal_connect(message, "wrote-body", G_CALLBACK(+[](SoupServerMessage* m, gpointer) {
                             g_object_set_data(G_OBJECT(m), kWritten, GINT_TO_POINTER(1));
                         }),
                         nullptr);
        g_signal_connect(message, "finished", G_CALLBACK(+[](SoupServerMessage* m, gpointer self) {
                             auto* server = static_cast<LoopbackSoapServer*>(self);
                             ++server->finishedReplies;
                             if (g_object_get_data(G_OBJECT(m), kWritten) == nullptr)
                                 ++server->abandonedReplies;
                         }),
                         this);
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
        if (reply.held) {
            soup_server_message_pause(message);
            held_.push_back(SOUP_SERVER_MESSAGE(g_object_ref(message)));
            return;
        }
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
    bool strict_ = false;
    std::deque<ExpectedRequest> expected_;
    std::vector<SoupServerMessage*> held_;
    std::vector<guint> timers_;
};

}  // namespace kora::testing_support
