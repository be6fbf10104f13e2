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
        source_ = g_timeout_add(kJournalFlushInterval.count(), flushBatch, this);
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

gboolean JournalQueue::flushBatch(gpointer self) {
    auto* queue = static_cast<JournalQueue*>(self);
    queue->flush();
    if (!queue->pending_.empty()) return G_SOURCE_CONTINUE;  // the database refused: retry
    queue->source_ = 0;
    return G_SOURCE_REMOVE;
}

}  // namespace kora::service
