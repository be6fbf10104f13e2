#pragma once

#include <gio/gio.h>

#include <string>

namespace kora::testing_support {

// A TCP server on 127.0.0.1 that answers every connection with the same raw
// bytes and then closes it without reading the request: with the request
// still unread, the close resets the connection. For replies that no HTTP
// server library would send, such as a body cut off in the middle.
class RawReplyServer {
  public:
    explicit RawReplyServer(std::string reply)
        : reply_(std::move(reply)), service_(g_socket_service_new()) {
        GError* error = nullptr;
        g_autoptr(GInetAddress) loopback = g_inet_address_new_loopback(G_SOCKET_FAMILY_IPV4);
        g_autoptr(GSocketAddress) address = g_inet_socket_address_new(loopback, 0);
        g_autoptr(GSocketAddress) bound = nullptr;
        g_socket_listener_add_address(G_SOCKET_LISTENER(service_), address, G_SOCKET_TYPE_STREAM,
                                      G_SOCKET_PROTOCOL_TCP, nullptr, &bound, &error);
        g_assert_no_error(error);
        port_ = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound));
        g_signal_connect(service_, "incoming", G_CALLBACK(&RawReplyServer::incoming), this);
        g_socket_service_start(service_);
    }
    ~RawReplyServer() {
        g_socket_service_stop(service_);
        g_socket_listener_close(G_SOCKET_LISTENER(service_));
        g_object_unref(service_);
    }
    RawReplyServer(const RawReplyServer&) = delete;
    RawReplyServer& operator=(const RawReplyServer&) = delete;

    std::string urlFor(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

  private:
    static gboolean incoming(GSocketService*, GSocketConnection* connection, GObject*,
                             gpointer data) {
        const auto* self = static_cast<RawReplyServer*>(data);
        GOutputStream* out = g_io_stream_get_output_stream(G_IO_STREAM(connection));
        g_output_stream_write_all(out, self->reply_.data(), self->reply_.size(), nullptr, nullptr,
                                  nullptr);
        g_io_stream_close(G_IO_STREAM(connection), nullptr, nullptr);
        return TRUE;
    }

    std::string reply_;
    GSocketService* service_;
    guint16 port_ = 0;
};

}  // namespace kora::testing_support
