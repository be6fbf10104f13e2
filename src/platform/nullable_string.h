#pragma once

#include <glib.h>

#include <optional>
#include <string>

namespace kora {

// D-Bus has no null string, and absent differs from empty here, so a string
// that may be absent travels as an array ("as") of zero (absent) or one string.
// The daemon and the client library both use these, so the two sides of the
// contract cannot drift apart.

// A new floating "as" value.
GVariant* nullableStringVariant(const std::optional<std::string>& text);

// Reads an "as" value into `text`; false when the array holds more than one
// string, which has no meaning.
bool readNullableString(GVariant* array, std::optional<std::string>& text);

}  // namespace kora
