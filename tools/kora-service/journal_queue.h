#pragma once

#include <glib.h>

#include <deque>

#include "catalogue_store.h"

namespace kora::service {

// Collects the journal entries of one turn of the default main loop and writes
// them in one transaction when the turn ends, so a busy server pays for one
// commit per turn instead of one per request. What the database refuses waits
// for the next turn; nothing is dropped unless the backlog overflows.
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
    static gboolean flushAtEndOfTurn(gpointer self);

    CatalogueStore& store_;
    std::deque<JournalEntry> pending_;
    guint source_ = 0;
};

}  // namespace kora::service
