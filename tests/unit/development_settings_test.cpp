#include "daemon/development_settings.h"

#include <gtest/gtest.h>

#include <map>

namespace kora {
namespace {

using namespace std::chrono_literals;
using Environment = std::map<std::string, std::string, std::less<>>;

DevelopmentSettings settingsFrom(const Environment& environment) {
    return readDevelopmentSettings([&](std::string_view name) -> std::optional<std::string> {
        const auto found = environment.find(name);
        if (found == environment.end()) return std::nullopt;
        return found->second;
    });
}

TEST(DevelopmentSettings, AreTheBuiltInValuesWhenNothingOrNothingUsableIsSet) {
    const std::string builtIn = "https://" KORA_SERVICE_HOST "/telso/cm/webservices/kora2.asmx";
    for (const Environment& environment :
         {Environment{}, Environment{{"KORAD_SERVICE_ADDRESS", ""},
                                     {"KORAD_REACHABILITY_HOST", ""},
                                     {"KORAD_TICK_SECONDS", "0"}}}) {
        const DevelopmentSettings settings = settingsFrom(environment);
        EXPECT_EQ(settings.serviceAddress, builtIn);
        EXPECT_EQ(settings.reachabilityHost, KORA_SERVICE_HOST);
        EXPECT_EQ(settings.tickInterval, 30s);
    }
}

TEST(DevelopmentSettings, TakeTheAddressAndFollowItsHostUnlessTheHostIsGiven) {
    Environment environment{{"KORAD_SERVICE_ADDRESS", "http://127.0.0.1:8080/kora2.asmx"},
                            {"KORAD_TICK_SECONDS", "2"}};
    DevelopmentSettings settings = settingsFrom(environment);
    EXPECT_EQ(settings.serviceAddress, "http://127.0.0.1:8080/kora2.asmx");
    EXPECT_EQ(settings.reachabilityHost, "127.0.0.1");
    EXPECT_EQ(settings.tickInterval, 2s);
    environment["KORAD_REACHABILITY_HOST"] = "example.org";
    EXPECT_EQ(settingsFrom(environment).reachabilityHost, "example.org");
}

TEST(TheTickInterval, IsTakenOnlyFromAWholeNumberOfSecondsUpToADay) {
    const std::pair<const char*, std::chrono::seconds> rows[] = {
        {"2", 2s},   {"86400", 86400s}, {"86401", 30s}, {"0", 30s},
        {"-5", 30s}, {"5s", 30s},       {"", 30s},      {"99999999999", 30s}};
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(tickIntervalFromText(text), expected) << text;
}

}  // namespace
}  // namespace kora
