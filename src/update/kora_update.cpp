#include "update/kora_update.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "dates/stored_date.h"
#include "update/stored_fields.h"

namespace kora {
namespace {

using StringField = KoraUpdate::OptionalString KoraUpdate::*;

}  // namespace

// The string keys of the stored form, in the order they are written.
struct KoraUpdateStringKeys {
    static constexpr std::array<std::pair<const char*, StringField>, 16> table{{
        {"updateId", &KoraUpdate::updateId_},
        {"identifier", &KoraUpdate::identifier_},
        {"name", &KoraUpdate::name_},
        {"description", &KoraUpdate::description_},
        {"downloadLocation", &KoraUpdate::downloadLocation_},
        {"versionTo", &KoraUpdate::versionTo_},
        {"size", &KoraUpdate::size_},
        {"provider", &KoraUpdate::provider_},
        {"parameters", &KoraUpdate::parameters_},
        {"hash", &KoraUpdate::hash_},
        {"signedName", &KoraUpdate::signedName_},
        {"updateType", &KoraUpdate::updateType_},
        {"guiTitle", &KoraUpdate::guiTitle_},
        {"guiDescription", &KoraUpdate::guiDescription_},
        {"guiReleaseNotes", &KoraUpdate::guiReleaseNotes_},
        {"localFilePath", &KoraUpdate::localFilePath_},
    }};
};

KoraUpdate::KoraUpdate() = default;

KoraUpdate::KoraUpdate(const PlistDictionary& dictionary) {
    for (const auto& [key, field] : KoraUpdateStringKeys::table) {
        this->*field = dictionary.string(key);
    }
    installationComplete_ = storedFlag(dictionary, "installationComplete");
    downloadComplete_ = storedFlag(dictionary, "downloadComplete");
    // No key: never postponed. A text that yields no date leaves the date
    // absent, which keeps the update postponed for the rest of the run.
    if (dictionary.find("waitUntilDate")) {
        const auto text = dictionary.string("waitUntilDate");
        waitUntilDate_ = text ? dateFromStoredText(*text) : std::nullopt;
    }
}

PlistDictionary KoraUpdate::serialize() const {
    PlistDictionary dictionary;
    for (const auto& [key, field] : KoraUpdateStringKeys::table) {
        storeString(dictionary, key, this->*field);
    }
    dictionary.set("installationComplete", PlistValue(installationComplete_));
    dictionary.set("downloadComplete", PlistValue(downloadComplete_));
    if (waitUntilDate_)
        dictionary.set("waitUntilDate", PlistValue(storedDateText(*waitUntilDate_)));
    return dictionary;
}

void KoraUpdate::postponeHours(std::int32_t hours, Date now) {
    // Counted in whole seconds (the precision the date is stored and compared
    // at) and kept inside what a Date can hold: a large number of hours would
    // overflow its nanosecond count.
    const std::int64_t limit =
        std::chrono::duration_cast<std::chrono::seconds>(Date::duration::max()).count() - 1;
    const std::int64_t target = unixSeconds(now) + std::int64_t{hours} * 3600;
    waitUntilDate_ = dateFromUnixSeconds(std::clamp(target, -limit, limit));
}

void KoraUpdate::postponeHours(std::int32_t hours) {
    postponeHours(hours, now());
}

bool KoraUpdate::shouldPostpone(Date now) const {
    if (!waitUntilDate_) return true;
    return unixSeconds(*waitUntilDate_) >= unixSeconds(now);
}

bool KoraUpdate::shouldPostpone() const {
    return shouldPostpone(now());
}

std::shared_ptr<KoraUpdate> KoraUpdate::selfForDelegate() {
    std::shared_ptr<KoraUpdate> self = weak_from_this().lock();
    if (!self) self = std::shared_ptr<KoraUpdate>(std::shared_ptr<KoraUpdate>{}, this);
    return self;
}

}  // namespace kora
