#pragma once

#include <string>

namespace kora {

// Why an exchange with the service failed: the domain names who reported it
// (the binding's HTTP or XML reading, the authentication, or the transport
// with its own GLib error domain), the code is that domain's.
struct ServiceError {
    std::string domain;
    long code = 0;
    std::string description;

    // The form used in the XML traces and by tools.
    std::string text() const {
        return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + description +
               "\"";
    }

    bool operator==(const ServiceError&) const = default;
};

}  // namespace kora
