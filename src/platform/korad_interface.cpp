#include "platform/korad_interface.h"

#include <iterator>
#include <stdexcept>

#include "platform/input_limits.h"
#include "platform/korad_bus_names.h"

namespace kora {
namespace {

using K = ArgumentKind;

constexpr KoradArgument kRegisterClientArguments[] = {
    {"identifier", K::identifier}, {"installationID", K::identifier}, {"productID", K::identifier},
    {"appVersion", K::identifier}, {"bundlePath", K::path},           {"appBrand", K::identifier},
};
static_assert(std::size(kRegisterClientArguments) == std::size(kRegistrationFields),
              "the registration record holds registerClientWith's arguments");

constexpr KoradArgument kUpdateClientArguments[] = {
    {"identifier", K::identifier}, {"bundlePath", K::path}, {"version", K::identifier}};
constexpr KoradArgument kSetRoamingArguments[] = {{"roaming", K::flag}};
constexpr KoradArgument kUninstallArguments[] = {{"identifier", K::identifier}};
constexpr KoradArgument kRegisterApplicationArguments[] = {
    {"identifier", K::identifier},      {"iccid", K::identifier},     {"imsi", K::identifier},
    {"wlanMac", K::identifier},         {"mobileMac", K::identifier}, {"software", K::identifier},
    {"previousVersion", K::identifier}, {"appBrand", K::identifier},  {"bundlePath", K::path},
};
constexpr KoradArgument kEchoArguments[] = {{"text", K::echoText}};

constexpr KoradMemberDescription kMembers[] = {
    {KoradMember::registerClientWith,
     "registerClientWith_installationID_productID_appVersion_bundlePath_appBrand",
     kRegisterClientArguments, ReplyKind::flag},
    // "withBundePath" is the name clients call; it stays as it is.
    {KoradMember::updateClient, "updateClient_withBundePath_andVersion", kUpdateClientArguments,
     ReplyKind::flag},
    {KoradMember::setRoaming, "setRoaming", kSetRoamingArguments, ReplyKind::flag},
    {KoradMember::forceCheck, "forceCheck", {}, ReplyKind::none},
    {KoradMember::uninstall, "uninstall", kUninstallArguments, ReplyKind::flag},
    {KoradMember::registerApplicationWithIdentifier,
     "registerApplicationWithIdentifier_usingIccid_imsi_wlanMac_mobileMac_software_"
     "previousVersion_appBrand_bundlePath",
     kRegisterApplicationArguments, ReplyKind::nullableString},
    {KoradMember::echo, "echo", kEchoArguments, ReplyKind::nullableString},
};

std::string argumentXml(std::string_view name, const char* type, const char* direction) {
    return "      <arg name=\"" + std::string(name) + "\" type=\"" + type + "\" direction=\"" +
           direction + "\"/>\n";
}

// GDBus checks every call against this description before it reaches the
// daemon's code, so a call whose signature differs is refused unseen.
std::string describeInterface() {
    std::string xml = std::string("<node>\n  <interface name=\"") + kKoradInterface + "\">\n";
    for (const KoradMemberDescription& member : kMembers) {
        xml += "    <method name=\"" + std::string(member.name) + "\">\n";
        for (const KoradArgument& argument : member.arguments)
            xml += argumentXml(argument.name, dbusType(argument.kind), "in");
        if (member.reply != ReplyKind::none) {
            // The reply's one element, without the tuple's parentheses.
            const std::string tuple = replyTupleType(member.reply);
            xml += argumentXml("result", tuple.substr(1, tuple.size() - 2).c_str(), "out");
        }
        xml += "    </method>\n";
    }
    return xml + "  </interface>\n</node>\n";
}

}  // namespace

std::span<const KoradMemberDescription> koradMembers() {
    return kMembers;
}

const KoradMemberDescription& describe(KoradMember member) {
    for (const KoradMemberDescription& description : kMembers)
        if (description.member == member) return description;
    throw std::logic_error("a Korad member without a row in the interface table");
}

const KoradMemberDescription* findKoradMember(std::string_view name) {
    for (const KoradMemberDescription& description : kMembers)
        if (description.name == name) return &description;
    return nullptr;
}

const char* dbusType(ArgumentKind kind) {
    return kind == ArgumentKind::flag ? "b" : "as";
}

const char* replyTupleType(ReplyKind reply) {
    switch (reply) {
        case ReplyKind::none:
            return "()";
        case ReplyKind::flag:
            return "(b)";
        case ReplyKind::nullableString:
            return "(as)";
    }
    return "()";
}

std::optional<ArgumentCap> capOf(ArgumentKind kind) {
    switch (kind) {
        case ArgumentKind::flag:
            return std::nullopt;
        case ArgumentKind::identifier:
            return ArgumentCap{kMaxIdentifierBytes, true};
        case ArgumentKind::path:
            return ArgumentCap{kMaxPathBytes, true};
        case ArgumentKind::echoText:
            return ArgumentCap{kMaxEchoBytes, false};
    }
    return std::nullopt;
}

const std::string& koradIntrospectionXml() {
    static const std::string xml = describeInterface();
    return xml;
}

}  // namespace kora
