#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kora {

// A string a client may leave out; absent differs from empty.
using OptionalString = std::optional<std::string>;

// The daemon's D-Bus interface, com.olvara.Korad, written down once: the
// daemon's adapter dispatches and describes itself from this table, and the
// client library calls through it, so the two sides cannot drift apart.
//
// A member name is the operation's selector with every ':' turned into '_' and
// the last one dropped. A string that may be absent travels as an `as` of zero
// or one element, a boolean as `b`; a member that answers nothing answers the
// empty tuple.

enum class KoradMember {
    registerClientWith,
    updateClient,
    setRoaming,
    forceCheck,
    uninstall,
    registerApplicationWithIdentifier,
    echo,
};

// What an argument holds, which fixes its D-Bus type and its cap.
enum class ArgumentKind {
    flag,        // b
    identifier,  // as: identifiers, versions, brands, installation and product ids, ICCID, ...
    path,        // as: a bundle path
    echoText,    // as: echo's text, logged and answered, never stored
};

enum class ReplyKind { none, flag, nullableString };

struct KoradArgument {
    std::string_view name;
    ArgumentKind kind;
};

struct KoradMemberDescription {
    KoradMember member;
    std::string_view name;
    std::span<const KoradArgument> arguments;
    ReplyKind reply;
};

// What a string argument may hold: at most `maxBytes`, and, when the daemon may
// store it in the registry (an XML file), only characters XML 1.0 can carry, or
// it would be written altered or make a file that other XML readers refuse.
struct ArgumentCap {
    std::size_t maxBytes;
    bool xmlTextOnly;
};

// Every member, in the order the interface description lists them.
std::span<const KoradMemberDescription> koradMembers();
const KoradMemberDescription& describe(KoradMember member);
// None for a name the interface does not have.
const KoradMemberDescription* findKoradMember(std::string_view name);

// "b" or "as".
const char* dbusType(ArgumentKind kind);
// The reply's tuple type: "()", "(b)" or "(as)".
const char* replyTupleType(ReplyKind reply);
// The cap of a string argument; a flag has none.
std::optional<ArgumentCap> capOf(ArgumentKind kind);

// The introspection XML of the interface, generated from the table.
const std::string& koradIntrospectionXml();

// One client application's registration: registerClientWith's arguments.
struct ApplicationRegistration {
    OptionalString identifier;
    OptionalString installationID;
    OptionalString productID;
    OptionalString appVersion;
    OptionalString bundlePath;
    OptionalString appBrand;
};

// The record's fields in the order registerClientWith takes them on the bus.
inline constexpr OptionalString ApplicationRegistration::*kRegistrationFields[] = {
    &ApplicationRegistration::identifier, &ApplicationRegistration::installationID,
    &ApplicationRegistration::productID,  &ApplicationRegistration::appVersion,
    &ApplicationRegistration::bundlePath, &ApplicationRegistration::appBrand,
};

}  // namespace kora
