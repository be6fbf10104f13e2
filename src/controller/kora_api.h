#pragma once

#include <optional>
#include <string>

namespace kora {

// A string a client may leave out; absent differs from empty.
using OptionalString = std::optional<std::string>;

// What client applications may ask of the daemon. Every operation answers as
// documented whatever happened; nothing is thrown.
//
// registerClientWith and updateClient answer true, with one exception: false
// when the registry refused the change because the file would have grown past
// what the daemon reads back at start. The change is then undone in memory too,
// and the D-Bus adapter answers the client with an error instead of false.
class KoraAPI {
public:
    virtual ~KoraAPI() = default;

    virtual bool registerClientWith(const OptionalString& identifier,
                                    const OptionalString& installationID,
                                    const OptionalString& productID,
                                    const OptionalString& appVersion,
                                    const OptionalString& bundlePath,
                                    const OptionalString& appBrand) = 0;
    // "withBundePath" is the name clients call; it stays as it is.
    virtual bool updateClient(const OptionalString& identifier, const OptionalString& bundlePath,
                              const OptionalString& version) = 0;
    virtual bool setRoaming(bool roaming) = 0;
    virtual void forceCheck() = 0;
    virtual bool uninstall(const OptionalString& identifier) = 0;
    // Accepted and ignored; always answers none.
    virtual OptionalString registerApplicationWithIdentifier(
        const OptionalString& identifier, const OptionalString& iccid,
        const OptionalString& imsi, const OptionalString& wlanMac,
        const OptionalString& mobileMac, const OptionalString& software,
        const OptionalString& previousVersion, const OptionalString& appBrand,
        const OptionalString& bundlePath) = 0;
};

// The object the daemon vends: the client operations, plus `echo`, which logs
// the text and answers it unchanged.
class VendedController : public KoraAPI {
public:
    virtual OptionalString echo(const OptionalString& text) = 0;
};

}  // namespace kora
