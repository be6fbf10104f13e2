#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue_store.h"

namespace kora::service {

// Compares versions as dotted numbers: "1.10" is above "1.9", and "1.2" equals
// "1.2.0". Each part counts by its leading digits; what follows them, and a
// part without any, counts as 0, so a version of any shape can be compared.
int compareVersions(std::string_view left, std::string_view right);

// True for one or more numbers joined by single dots ("1", "2.0.13").
bool isDottedVersion(std::string_view text);

// What a Check asks about.
struct CheckQuestion {
    std::string productId;
    std::optional<std::string> brand;
    std::optional<std::string> version;  // the installed version
};

// The offer with the highest VersionTo among those that apply: same product,
// same brand when the offer names one, the installed version within the
// offer's range, and VersionTo above it. None without an installed version.
std::optional<Offer> newestMatchingOffer(const std::vector<Offer>& offers,
                                         const CheckQuestion& question);

}  // namespace kora::service
