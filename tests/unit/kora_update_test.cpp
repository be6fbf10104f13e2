#include "update/kora_update.h"

#include <gtest/gtest.h>

#include "dates/stored_date.h"

namespace kora {
namespace {

using std::chrono::seconds;

TEST(AnUpdate, ComesBackFromItsStoredFormWithEveryStoredField) {
    PlistDictionary stored;
    for (const char* key :
         {"updateId", "identifier", "name", "description", "downloadLocation", "versionTo", "size",
          "provider", "parameters", "hash", "signedName", "updateType", "guiTitle",
          "guiDescription", "guiReleaseNotes", "localFilePath"}) {
        stored.set(key, std::string(key) + " value");
    }
    stored.set("installationComplete", false);
    stored.set("downloadComplete", true);
    const Date wait = now() + std::chrono::milliseconds(86'400'250);
    stored.set("waitUntilDate", storedDateText(wait));

    const KoraUpdate restored(stored);
    EXPECT_EQ(restored.serialize(), stored);
    EXPECT_EQ(restored.localFilePath(), "localFilePath value");
    EXPECT_EQ(restored.waitUntilDate(), std::chrono::floor<seconds>(wait));
    EXPECT_TRUE(restored.downloadComplete());
    EXPECT_FALSE(restored.hasStartedDownload());
}

TEST(AnUpdate, ReadsAMissingWaitAsNeverPostponedAndAnUnreadableOneAsPostponed) {
    const Date now = kora::now();
    EXPECT_FALSE(KoraUpdate().shouldPostpone(now));
    EXPECT_FALSE(KoraUpdate(PlistDictionary{}).shouldPostpone(now));

    PlistDictionary garbled;
    garbled.set("waitUntilDate", "soon");
    const KoraUpdate unreadable(garbled);
    EXPECT_TRUE(unreadable.shouldPostpone(now + std::chrono::hours(1000)));
    // Only the two completion flags are written when nothing else is present.
    EXPECT_EQ(unreadable.serialize().size(), 2u);
}

struct PostponeCase {
    std::chrono::milliseconds waitFromNow;
    bool postponed;
};

class APostponedUpdate : public testing::TestWithParam<PostponeCase> {};

TEST_P(APostponedUpdate, WaitsUntilTheDateHasPassedToTheSecond) {
    const Date now = dateFromUnixSeconds(1'700'000'000) + std::chrono::milliseconds(500);
    KoraUpdate update;
    update.setWaitUntilDate(now + GetParam().waitFromNow);
    EXPECT_EQ(update.shouldPostpone(now), GetParam().postponed);
}

INSTANTIATE_TEST_SUITE_P(Edges, APostponedUpdate,
                         testing::Values(PostponeCase{std::chrono::milliseconds(3600'000), true},
                                         PostponeCase{std::chrono::milliseconds(0), true},
                                         PostponeCase{std::chrono::milliseconds(-400), true},
                                         PostponeCase{std::chrono::milliseconds(-1000), false}));

TEST(AnUpdate, TakesTheLatestPostponementEvenWhenShorter) {
    const Date now = dateFromUnixSeconds(1'700'000'000);
    KoraUpdate update;
    update.postponeHours(24, now);
    update.postponeHours(1, now);
    EXPECT_EQ(update.waitUntilDate(), now + std::chrono::hours(1));
    update.postponeHours(INT32_MAX, now);
    EXPECT_TRUE(update.shouldPostpone(now + std::chrono::hours(24 * 365 * 200)));
}

}  // namespace
}  // namespace kora
