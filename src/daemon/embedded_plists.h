#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kora {

// The two property lists the daemon's executable carries: its bundle description
// in the section "__TEXT,__info_plist" and its service-manager job description in
// "__TEXT,__launchd_plist". The texts are the XML property lists as stored, with
// no terminating NUL.
std::string_view embeddedBundleDescription();
std::string_view embeddedJobDescription();

// "CFBundleVersion" of the bundle description, read back from the running
// executable's own file with the embedded property-list reader, the way the
// installer and the service manager see it. No value when that file or section
// cannot be read.
//
// The daemon calls this at start. That call is also what makes the linker take
// this file's object out of the static library, and with it both sections.
std::optional<std::string> embeddedBundleVersion();

}  // namespace kora
