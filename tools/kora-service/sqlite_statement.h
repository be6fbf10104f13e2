#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>

#include "catalogue_store.h"

namespace kora::service {

// A prepared statement, kept for the life of the store and reset after each use.
class SqliteStatement {
  public:
    SqliteStatement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr) !=
            SQLITE_OK) {
            throw StoreError(std::string("cannot prepare a statement: ") + sqlite3_errmsg(db));
        }
    }
    ~SqliteStatement() { sqlite3_finalize(statement_); }
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    // Binds the parameters in order, starting afresh.
    template <typename... Values>
    SqliteStatement& bind(const Values&... values) {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
        int index = 0;
        (bindOne(++index, values), ...);
        return *this;
    }

    // True while a row is there to read.
    bool step() {
        const int status = sqlite3_step(statement_);
        if (status == SQLITE_ROW) return true;
        sqlite3_reset(statement_);
        if (status != SQLITE_DONE) {
            throw StoreError(std::string("database error: ") + sqlite3_errmsg(db_));
        }
        return false;
    }

    std::string text(int column) const {
        const auto* value = sqlite3_column_text(statement_, column);
        return value ? reinterpret_cast<const char*>(value) : "";
    }
    std::optional<std::string> optionalText(int column) const {
        if (sqlite3_column_type(statement_, column) == SQLITE_NULL) return std::nullopt;
        return text(column);
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }

  private:
    void bindOne(int index, const std::string& value) {
        sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()),
                          SQLITE_TRANSIENT);
    }
    void bindOne(int index, const std::optional<std::string>& value) {
        if (value) {
            bindOne(index, *value);
        } else {
            sqlite3_bind_null(statement_, index);
        }
    }
    void bindOne(int index, std::int64_t value) { sqlite3_bind_int64(statement_, index, value); }

    sqlite3* db_;
    sqlite3_stmt* statement_ = nullptr;
};

}  // namespace kora::service
