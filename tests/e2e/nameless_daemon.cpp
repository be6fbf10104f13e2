// A daemon executable that is not fit to replace korad: it carries korad's
// bundle identifier in its embedded bundle description, so the self-update
// helper accepts it, but it never owns com.olvara.Korad. It waits for SIGTERM.

#include <unistd.h>

#include <array>
#include <cstddef>

namespace {

template <std::size_t N>
constexpr std::array<char, N - 1> withoutTerminator(const char (&text)[N]) {
    std::array<char, N - 1> bytes{};
    for (std::size_t i = 0; i + 1 < N; ++i) bytes[i] = text[i];
    return bytes;
}

// Named as korad names its own section (see src/daemon/embedded_plists.cpp).
#if defined(__clang__)
__attribute__((section("__TEXT,__info_plist"), used, no_sanitize("address")))
#else
__attribute__((section("\"__TEXT,__info_plist\""), used))
#endif
const auto kBundleDescription = withoutTerminator(R"(<?xml version="1.0" encoding="UTF-8"?>
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
