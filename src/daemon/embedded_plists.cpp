#include "daemon/embedded_plists.h"

#include "platform/embedded_section.h"
#include "platform/own_executable.h"
#include "update/tq_plist_extractor.h"

namespace kora {

namespace {

// "SMAuthorizedClients" names the one program allowed to install the daemon as a
// privileged helper: the installer, by its identifier and the common name of the
// certificate that signs it.
KORA_EMBEDDED_SECTION("__TEXT,__info_plist")
const auto kBundleDescription = withoutTerminator(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>CFBundleIdentifier</key>
	<string>com.olvara.Korad</string>
	<key>CFBundleInfoDictionaryVersion</key>
	<string>6.0</string>
	<key>CFBundleName</key>
	<string>Korad</string>
	<key>CFBundleVersion</key>
	<string>1.3.1.0</string>
	<key>SMAuthorizedClients</key>
	<array>
		<string>identifier com.olvara.Installer and certificate leaf[subject.CN] = "Olvara Code Signing"</string>
	</array>
</dict>
</plist>
)");

// Restarted whenever it exits, with no delay; both output streams go to the log
// file, so every system-log line (copied to standard error) lands there too.
KORA_EMBEDDED_SECTION("__TEXT,__launchd_plist")
const auto kJobDescription = withoutTerminator(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>Label</key>
	<string>com.olvara.Korad</string>
	<key>KeepAlive</key>
	<true/>
	<key>RunAtLoad</key>
	<true/>
	<key>ThrottleInterval</key>
	<integer>0</integer>
	<key>StandardOutPath</key>
	<string>/Library/Logs/korad.out.log</string>
	<key>StandardErrorPath</key>
	<string>/Library/Logs/korad.out.log</string>
	<key>MachServices</key>
	<dict>
		<key>com.olvara.Korad</key>
		<true/>
	</dict>
</dict>
</plist>
)");

}  // namespace

std::string_view embeddedBundleDescription() {
    return {kBundleDescription.data(), kBundleDescription.size()};
}

std::string_view embeddedJobDescription() {
    return {kJobDescription.data(), kJobDescription.size()};
}

std::optional<std::string> embeddedBundleVersion() {
    const auto description = TqPlistExtractor::TqExtractPlist(kOwnExecutablePath, "__info_plist");
    const auto* dictionary = description ? description->as<PlistDictionary>() : nullptr;
    if (dictionary == nullptr) return std::nullopt;
    return dictionary->string("CFBundleVersion");
}

}  // namespace kora
