#include "offer_choice.h"

#include <algorithm>
#include <cstdint>

namespace kora::service {
namespace {

// The number a part of a version starts with; 0 when it starts with no digit.
std::uint64_t leadingNumber(std::string_view part) {
    std::uint64_t number = 0;
    for (char c : part) {
        if (c < '0' || c > '9') break;
        // Saturates instead of wrapping, so a huge part still sorts high.
        number = number > (UINT64_MAX - 9) / 10 ? UINT64_MAX : number * 10 + (c - '0');
    }
    return number;
}

std::vector<std::uint64_t> versionNumbers(std::string_view version) {
    std::vector<std::uint64_t> numbers;
    while (true) {
        const std::size_t dot = version.find('.');
        numbers.push_back(leadingNumber(version.substr(0, dot)));
        if (dot == std::string_view::npos) break;
        version.remove_prefix(dot + 1);
    }
    return numbers;
}

bool applies(const Offer& offer, const CheckQuestion& question) {
    if (offer.productId != question.productId) return false;
    if (offer.brand && offer.brand != question.brand) return false;
    const std::string& installed = *question.version;
    if (offer.fromVersion && compareVersions(installed, *offer.fromVersion) < 0) return false;
    if (offer.toVersion && compareVersions(installed, *offer.toVersion) > 0) return false;
    return compareVersions(offer.versionTo, installed) > 0;
}

}  // namespace

int compareVersions(std::string_view left, std::string_view right) {
    std::vector<std::uint64_t> a = versionNumbers(left);
    std::vector<std::uint64_t> b = versionNumbers(right);
    const std::size_t length = std::max(a.size(), b.size());
    a.resize(length, 0);
    b.resize(length, 0);
    if (a == b) return 0;
    return a < b ? -1 : 1;
}

bool isDottedVersion(std::string_view text) {
    bool digitBefore = false;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            digitBefore = true;
        } else if (c == '.' && digitBefore) {
            digitBefore = false;
        } else {
            return false;
        }
    }
    return digitBefore;
}

std::optional<Offer> newestMatchingOffer(const std::vector<Offer>& offers,
                                         const CheckQuestion& question) {
    if (!question.version) return std::nullopt;
    const Offer* newest = nullptr;
    for (const Offer& offer : offers) {
        if (!applies(offer, question)) continue;
        if (newest == nullptr || compareVersions(offer.versionTo, newest->versionTo) > 0) {
            newest = &offer;
        }
    }
    if (newest == nullptr) return std::nullopt;
    return *newest;
}

}  // namespace kora::service
