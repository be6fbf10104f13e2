#include <glib-unix.h>

#include <cstdio>
#include <memory>

#include "command_line.h"
#include "commands.h"
#include "service_server.h"

namespace kora::service {
namespace {

constexpr const char* kHelp = R"HELP(NAME
    kora-service serve - answer Korad's update service requests over HTTP

SYNOPSIS
    kora-service serve [--db PATH] [--listen ADDRESS:PORT] [--public-url URL]

DESCRIPTION
    Serves, until SIGTERM or SIGINT:

    POST /telso/cm/webservices/kora2.asmx
        The eight operations, in SOAP 1.1 (answered as "text/xml") or SOAP 1.2
        (answered as "application/soap+xml"), chosen by the request's Body
        element. A Check is offered the newest published update that applies
        to it (see "kora-service publish --help"), or the UpdateID
        00000000-0000-0000-0000-000000000000 when none does. Notices are
        acknowledged with an empty response. A request that is not well-formed,
        names an unknown operation, has no Content-Length or a body over 256 KiB
        gets a SOAP fault.

    GET /archives/UPDATEID/NAME.zip
        The archive of an offered update, with a Content-Disposition file name
        equal to the folder the archive holds plus ".zip", which the daemon
        needs to unpack it. Offers point their Location here.

    Every request to the endpoint, answered or refused, goes into the journal
    with its time, operation, fields and client address. Entries are written
    in batches, one transaction every 100 ms at most, and the last ones when
    the service stops.

OPTIONS
    --db PATH
        The database (default /var/lib/kora-service/catalogue.db).

    --listen ADDRESS:PORT
        The IP address and port to listen on (default 127.0.0.1:8080). Use
        0.0.0.0 for every IPv4 interface, [::] for every interface, and port 0
        for any free port. The endpoint's URL is printed on standard output
        once the service listens.

    --public-url URL
        The scheme, host and port under which clients reach this server, for
        example https://updates.example.com when a proxy stands in front of it.
        Offers' Location is built from it. Default: the address and port the
        client connected to.

EXAMPLES
    kora-service serve --listen 0.0.0.0:8080 --public-url http://updates.lan:8080
)HELP";

struct ListenAddress {
    std::string host;
    unsigned port;
};

ListenAddress parseListen(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        throw UsageError("--listen takes ADDRESS:PORT, not '" + text + "'");
    }
    std::string host = text.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    const std::string port = text.substr(colon + 1);
    char* end = nullptr;
    const unsigned long number = std::strtoul(port.c_str(), &end, 10);
    if (port.empty() || *end != '\0' || number > 65535) {
        throw UsageError("--listen: '" + port + "' is not a port number");
    }
    return {host, static_cast<unsigned>(number)};
}

gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

int serve(const std::vector<std::string>& words) {
    const CommandLine line(words, {"listen", "public-url"}, {});
    line.expectOperands(0, "");
    const ListenAddress listen = parseListen(line.value("listen").value_or("127.0.0.1:8080"));
    const std::optional<std::string> publicUrl = line.value("public-url");
    if (publicUrl && !g_uri_is_valid(publicUrl->c_str(), G_URI_FLAGS_NONE, nullptr)) {
        throw UsageError("--public-url: '" + *publicUrl + "' is not an absolute URL");
    }
    const std::unique_ptr<CatalogueStore> store = openStore(line);
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    const guint term = g_unix_signal_add(SIGTERM, quit, loop);
    const guint interrupt = g_unix_signal_add(SIGINT, quit, loop);
    {
        ServiceServer server(*store, publicUrl);
        std::printf("kora-service: listening on %s\n", server.listen(listen.host, listen.port).c_str());
        std::fflush(stdout);
        g_main_loop_run(loop);
        std::fprintf(stderr, "kora-service: stopping\n");
    }  // the server writes the last journal entries here
    g_source_remove(term);
    g_source_remove(interrupt);
    return 0;
}

}  // namespace

const Command kServeCommand{"serve", "serve [--db PATH] [--listen ADDRESS:PORT] [--public-url URL]",
                            kHelp, serve};

}  // namespace kora::service
