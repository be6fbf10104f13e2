#pragma once

#include <span>

namespace kora::service {

// One step of the schema: the files of schema/, numbered from 1, compiled in.
struct SchemaMigration {
    int version;
    const char* name;
    const char* sql;
};

// In version order.
std::span<const SchemaMigration> schemaMigrations();

}  // namespace kora::service
