// A daemon executable that is not fit to replace korad: it carries korad's
// bundle identifier in its embedded bundle description, so the self-update
// helper accepts it, but it never owns com.olvara.Korad. It waits for SIGTERM.

#include <unistd.h>

#include "platform/embedded_section.h"

namespace {

// In the section where korad carries its own.
KORA_EMBEDDED_SECTION("__TEXT,__info_plist")
const auto kBundleDescription = kora::withoutTerminator(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>CFBundleIdentifier</key>
	<string>com.olvara.Korad</string>
	<key>CFBundleVersion</key>
	<string>0.0.0.1</string>
</dict>
</plist>
)");

}  // namespace

int main() {
    for (;;) pause();
}
