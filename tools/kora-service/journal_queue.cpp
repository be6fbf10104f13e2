#include "journal_queue.h"

#include <cstdio>
#include <vector>

#include "service_limits.h"

namespace kora::service {

JournalQueue::~JournalQueue() {
    if (source_ != 0) g_source_remove(source_);
    flush();
}

void JournalQueue::append(JournalEntry entry) {
    if (pending_.size() >= kJournalBacklogEntries) {
        std::fprintf(stderr, "kora-service: journal backlog full, dropping the entry of %s\n",
                     pending_.front().receivedAt.c_str());
        pending_.pop_front();
    }
    pending_.push_back(std::move(entry));
    if (pending_.size() >= kJournalBatchEntries) {
        flush();
    } else if (source_ == 0) {
        // Default priority, like the sockets: an idle priority would starve
        // while requests keep arriving.
        source_ = g_idle_add_full(G_PRIORITY_DEFAULT, flushAtEndOfTurn, this, nullptr);
    }
}

bool JournalQueue::flush() {
    if (pending_.empty()) return true;
    try {
        store_.appendToJournal(std::vector<JournalEntry>(pending_.begin(), pending_.end()));
        pending_.clear();
        return true;
    } catch (const StoreError& error) {
        std::fprintf(stderr, "kora-service: cannot write %zu journal entries yet: %s\n",
                     pending_.size(), error.what());
        return false;
    }
}

gboolean JournalQueue::flushAtEndOfTurn(gpointer self) {
    auto* queue = static_cast<JournalQueue*>(self);
    queue->source_ = 0;
    queue->flush();
    if (!queue->pending_.empty() && queue->source_ == 0) {
        // Try again in a second rather than at every turn.
        queue->source_ = g_timeout_add_seconds(1, flushAtEndOfTurn, self);
    }
    return G_SOURCE_REMOVE;
}

}  // namespace kora::service
