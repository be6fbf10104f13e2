#pragma once

#include <glib.h>

#include <deque>

#include "catalogue_store.h"

namespace kora::service {

// Collects journal entries for a moment (kJournalFlushInterval) and writes
// them in one transaction, so a busy server pays for one commit per batch
// instead of one per request. What the database refuses waits for the next
// batch; nothing is dropped unless the backlog overflows. A stop through the
// destructor writes what is waiting.
class JournalQueue {
  public:
    explicit JournalQueue(CatalogueStore& store) : store_(store) {}
    // Writes what is still waiting.
    ~JournalQueue();
    JournalQueue(const JournalQueue&) = delete;
    JournalQueue& operator=(const JournalQueue&) = delete;

    void append(JournalEntry entry);
    // Writes every waiting entry now; false when the database refused them.
    bool flush();

  private:
    static gboolean flushBatch(gpointer self);

    CatalogueStore& store_;
    std::deque<JournalEntry> pending_;
    guint source_ = 0;
};

}  // namespace kora::service
