#include "update/kora_installer.h"

#include <glib.h>

#include <cstdlib>
#include <stdexcept>

#include "platform/digest.h"
#include "platform/logging.h"
#include "update/kora_update.h"
#include "update/tq_plist_extractor.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

std::string replaceAll(std::string text, std::string_view macro, std::string_view value) {
    for (std::size_t at = text.find(macro); at != std::string::npos;
         at = text.find(macro, at + value.size())) {
        text.replace(at, macro.size(), value);
    }
    return text;
}

// The archive path without its extension: the folder the archive unpacks to.
std::string withoutExtension(const std::string& path) {
    return fs::path(path).replace_extension().string();
}

// The registry's application entries as they are on disk now, or none.
std::optional<PlistDictionary> registeredApplications(const fs::path& registryFile) {
    const std::optional<PlistDictionary> registry = readPropertyListDictionary(registryFile);
    if (!registry) return std::nullopt;
    const PlistDictionary* applications = registry->dictionary("KoraDB");
    if (applications == nullptr) return std::nullopt;
    return *applications;
}

// The bundle path of a registry entry: none when the entry is not a
// dictionary or holds no string "bundlePath".
const std::string* bundlePathOf(const PlistValue& entry) {
    const PlistDictionary* application = entry.as<PlistDictionary>();
    const PlistValue* path = application != nullptr ? application->find("bundlePath") : nullptr;
    return path != nullptr ? path->as<std::string>() : nullptr;
}

}  // namespace

std::string KoraReachabilityHost(const std::string& serviceAddress) {
    g_autoptr(GUri) address = g_uri_parse(serviceAddress.c_str(), G_URI_FLAGS_NONE, nullptr);
    const char* host = address != nullptr ? g_uri_get_host(address) : nullptr;
    return host != nullptr ? host : "";
}

KoraInstallerContext LiveInstallerServices::context(const Workspace& workspace,
                                                    std::string reachabilityHost) {
    return KoraInstallerContext{
        .paths = InstallerPaths{},
        .tools = ToolTable::live(),
        .runner = runner,
        .workspace = workspace,
        .runningApplications = runningApplications,
        .launcher = launcher,
        .reachability = reachability,
        .userPreferences = userPreferences,
        .reachabilityHost = std::move(reachabilityHost),
    };
}

KoraInstaller::KoraInstaller(KoraInstallerContext context) : context_(std::move(context)) {}

std::string KoraInstaller::TranslateKoraString(const std::string& original,
                                               const KoraUpdate& update) const {
    std::string text = original;
    try {
        if (text.find("@update") != std::string::npos) {
            const OptionalString archive = update.localFilePath();
            if (!archive) throw std::invalid_argument("the update has no archive for @update");
            text = replaceAll(text, "@update", withoutExtension(*archive));
        }
        // Plain text replacements, so "@tmpdir" becomes "/tmpdir".
        text = replaceAll(text, "@applications", context_.paths.applications);
        text = replaceAll(text, "@tmp", context_.paths.tmp);

        const std::size_t at = text.find('@');
        if (at == std::string::npos) return text;
        const std::size_t end = text.find('/', at + 1);
        const std::string identifier = text.substr(at + 1, end == std::string::npos ? end : end - at - 1);
        const std::string macro = "@" + identifier;

        if (const auto applications = registeredApplications(context_.paths.registryFile)) {
            if (const PlistValue* entry = applications->find(identifier)) {
                // A registered application without a path is not looked up
                // elsewhere: the registry is the authority for what it holds.
                const std::string* bundlePath = bundlePathOf(*entry);
                if (bundlePath == nullptr) {
                    throw std::invalid_argument("the registry holds no bundle path for " + identifier);
                }
                return replaceAll(text, macro, *bundlePath);
            }
        }
        if (const auto bundle = context_.workspace.absolutePathForAppBundleWithIdentifier(identifier)) {
            return replaceAll(text, macro, bundle->string());
        }
        return text;
    } catch (const std::exception& error) {
        logInfo("Exception while translating kora string: %s\n", loggable(error.what()).c_str());
        logInfo("The string is: %s\n", loggable(text).c_str());
        return text;
    }
}

KoraInstaller::OptionalString KoraInstaller::FindPathForIdentifier(std::string_view identifier) const {
    const auto applications = registeredApplications(context_.paths.registryFile);
    const PlistValue* entry = applications ? applications->find(identifier) : nullptr;
    const std::string* bundlePath = entry != nullptr ? bundlePathOf(*entry) : nullptr;
    return bundlePath != nullptr ? OptionalString(*bundlePath) : std::nullopt;
}

KoraInstaller::Bytes KoraInstaller::PerformTask(std::string_view tool,
                                                const std::vector<std::string>& arguments,
                                                int& resultCode) const {
    return context_.runner.run(context_.tools.pathFor(tool), arguments, resultCode);
}

std::optional<PlistValue> KoraInstaller::ExtractPlist(std::string_view section,
                                                      const fs::path& binary) const {
    return TqPlistExtractor::TqExtractPlist(binary, section);
}

std::string KoraInstaller::getSHA1HashForFile(const fs::path& file) {
    return sha1HexOfFile(file);
}

std::string KoraInstaller::md5(std::span<const std::uint8_t> bytes) {
    return md5Hex(bytes);
}

bool KoraInstaller::HasInternetConnection() const {
    const auto flags = context_.reachability.flagsForHost(context_.reachabilityHost);
    return flags && flags->reachable && !flags->connectionRequired;
}

}  // namespace kora
