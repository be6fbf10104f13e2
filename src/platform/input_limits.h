#pragma once

#include <chrono>
#include <cstddef>

// Every limit that korad puts on input it does not control, in one place. Each
// has a test at its boundary: the limit itself passes, one more is refused.
namespace kora {

// --- Property lists (the registry, applications' Info.plist files, install
// scripts from downloaded archives, job descriptions).

// Anything larger is refused before it is parsed. Real registries hold a few
// hundred bytes per application, so this is tens of thousands of applications.
inline constexpr std::size_t kPlistMaxBytes = 16 * 1024 * 1024;

// Nesting deeper than this is refused, counted as the XML parser counts it, and
// no conversion recurses deeper: libplist recurses once per level and overflows
// its stack on deep input.
inline constexpr std::size_t kPlistMaxDepth = 128;

// A binary property list may refer to one object many times, and libplist
// copies it each time: 243 bytes can expand into billions of values. A list
// whose tree would hold more values (dictionary keys included) is refused
// before it is expanded. A registry of ten thousand applications holds about
// 120,000 and an Info.plist a few hundred, while reading a million values
// took 0.6 s of CPU and 140 MB here, libplist's nodes and ours together.
inline constexpr std::size_t kPlistMaxNodes = 1'000'000;

// --- Update service exchanges.

// Replies are read into memory whole; anything larger ends the exchange. Real
// replies are a few kilobytes.
inline constexpr std::size_t kMaxReplyBodyBytes = 4 * 1024 * 1024;

// An exchange ends as timed out after this long, however steadily the reply
// trickles in (the 10-second time-out of the design measures only inactivity).
inline constexpr std::chrono::seconds kExchangeDeadline{60};

// --- D-Bus arguments. A longer argument is refused with InvalidArgs.

inline constexpr std::size_t kMaxIdentifierBytes = 255;  // identifiers, versions, brands, ids
inline constexpr std::size_t kMaxPathBytes = 4096;
inline constexpr std::size_t kMaxEchoBytes = 64 * 1024;

// --- Logs. A text from outside is cut at this length in a log line, with its
// full length noted, so no caller can fill the disk through the log.
inline constexpr std::size_t kMaxLoggedTextBytes = 1024;

// --- Shutdown. SIGTERM ends the daemon within this time, whatever service
// exchange it waits for.
inline constexpr std::chrono::seconds kShutdownGrace{2};

}  // namespace kora
