#pragma once

#include <chrono>
#include <cstddef>

// Every limit kora-service puts on what clients send, in one place.
namespace kora::service {

// A request body larger than this is refused before it is read. A Check is
// about 2 KB; an error notice with a long message stays far below this.
inline constexpr std::size_t kMaxRequestBodyBytes = 256 * 1024;

// Journal entries wait this long and are written in one transaction; a batch
// this large is written at once. A crash loses at most this much of the
// journal; a stop by signal loses nothing.
inline constexpr std::chrono::milliseconds kJournalFlushInterval{100};
inline constexpr std::size_t kJournalBatchEntries = 1000;

// While the database refuses writes, entries wait in memory up to this many;
// beyond it the oldest are dropped, with one log line each time.
inline constexpr std::size_t kJournalBacklogEntries = 100'000;

}  // namespace kora::service
