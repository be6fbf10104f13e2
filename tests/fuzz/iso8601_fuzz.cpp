#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "dates/iso8601_parsing.h"
#include "dates/iso8601_unparsing.h"

namespace {

// A date must come with a range inside the input; no date with the not-found range.
void check(std::string_view text, const std::optional<kora::Date>& date, kora::ISO8601Range range) {
    if (!date) {
        if (range != kora::kISO8601NotFound) std::abort();
        return;
    }
    if (range.location + static_cast<std::size_t>(range.length) > text.size()) std::abort();
    kora::ISO8601DateString(*date);
    kora::ISO8601WeekDateString(*date);
    kora::ISO8601OrdinalDateStringWithTime(*date, false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const bool strictly : {false, true}) {
        kora::ISO8601Range range{};
        const auto date = kora::dateWithString(text, strictly, &range);
        if (date != kora::dateWithString(text, strictly)) std::abort();
        check(text, date, range);
    }
    // The first byte doubles as a time separator for the rest.
    if (size > 1 && data[0] != 0) {
        kora::ISO8601Range range{};
        const auto rest = text.substr(1);
        check(rest, kora::dateWithString(rest, static_cast<char16_t>(data[0]), &range), range);
    }
    return 0;
}
