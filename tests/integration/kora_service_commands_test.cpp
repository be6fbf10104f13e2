#include <gtest/gtest.h>

#include <filesystem>

#include "offer_choice.h"
#include "support/kora_service_catalogue.h"

namespace kora::service {
namespace {

using test::ServiceCatalogue;

// --- Choosing the offer for a Check.

Offer offer(std::string id, std::string versionTo, std::optional<std::string> brand = {},
            std::optional<std::string> from = {}, std::optional<std::string> to = {}) {
    Offer offer;
    offer.updateId = std::move(id);
    offer.productId = "P";
    offer.versionTo = std::move(versionTo);
    offer.brand = std::move(brand);
    offer.fromVersion = std::move(from);
    offer.toVersion = std::move(to);
    return offer;
}

struct CheckRow {
    const char* name;
    CheckQuestion question;
    const char* expected;  // the chosen UpdateID, "" for none
};

class ANewestMatchingOffer : public ::testing::TestWithParam<CheckRow> {};

TEST_P(ANewestMatchingOffer, IsChosenByProductBrandAndVersionRange) {
    const std::vector<Offer> catalogue{
        offer("any-brand-2.0", "2.0", {}, "1.0", "1.9.99"),
        offer("acme-2.1", "2.1", "Acme", "1.0", "2.0"),
        offer("any-brand-1.10", "1.10", {}, {}, "1.9"),
        offer("open-3.0", "3.0", {}, "2.5"),
    };
    const std::optional<Offer> chosen = newestMatchingOffer(catalogue, GetParam().question);
    EXPECT_EQ(chosen ? chosen->updateId : "", GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ANewestMatchingOffer,
    ::testing::Values(
        CheckRow{"HighestVersionToWins", {"P", "Acme", "1.5"}, "acme-2.1"},
        CheckRow{"OtherBrandSkipsBrandedOffer", {"P", "Other", "1.5"}, "any-brand-2.0"},
        CheckRow{"NoBrandSkipsBrandedOffer", {"P", std::nullopt, "1.5"}, "any-brand-2.0"},
        CheckRow{"DottedNumbersNotText", {"P", "Other", "0.9"}, "any-brand-1.10"},
        CheckRow{"UpperBoundInclusive", {"P", "Acme", "2.0"}, "acme-2.1"},
        CheckRow{"AboveEveryRange", {"P", "Acme", "2.2"}, ""},
        CheckRow{"OpenUpperEnd", {"P", "Acme", "2.5.0"}, "open-3.0"},
        CheckRow{"VersionToMustBeAbove", {"P", "Acme", "3.0"}, ""},
        CheckRow{"OtherProduct", {"Q", "Acme", "1.5"}, ""},
        CheckRow{"NoVersionNoOffer", {"P", "Acme", std::nullopt}, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VersionComparison, ReadsDottedNumbersAndToleratesOtherShapes) {
    EXPECT_GT(compareVersions("1.10", "1.9"), 0);
    EXPECT_EQ(compareVersions("1.2", "1.2.0"), 0);
    EXPECT_LT(compareVersions("", "0.1"), 0);
    EXPECT_EQ(compareVersions("2.0beta", "2.0"), 0);
    EXPECT_GT(compareVersions("99999999999999999999999", "1"), 0);
    EXPECT_TRUE(isDottedVersion("2.0.13"));
    for (const char* text : {"", "2.", ".2", "2..0", "2.x", "-1"}) {
        EXPECT_FALSE(isDottedVersion(text)) << text;
    }
}

// --- The commands, run as the real program.

TEST(KoraServiceCommands, PublishListAndWithdrawAnOffer) {
    const ServiceCatalogue catalogue;
    const std::string id = catalogue.publish(
        "App-2.0", {"--product", "P", "--version", "2.0", "--brand", "Acme", "--parameters",
                    "-restart"});
    ASSERT_EQ(id.size(), 36u) << id;

    const CommandOutcome listed = catalogue.run({"offers", "--json"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_NE(listed.output.find("\"updateId\":\"" + id + "\""), std::string::npos);
    EXPECT_NE(listed.output.find("\"brand\":\"Acme\",\"fromVersion\":null"), std::string::npos);
    EXPECT_NE(listed.output.find("\"fileName\":\"App-2.0.zip\""), std::string::npos);
    const std::filesystem::path copy = catalogue.folder() / "archives" / id / "App-2.0.zip";
    EXPECT_TRUE(std::filesystem::exists(copy));

    EXPECT_EQ(catalogue.run({"withdraw", id}).status, 0);
    EXPECT_EQ(catalogue.run({"offers"}).output, "");
    EXPECT_FALSE(std::filesystem::exists(copy.parent_path()));
    const CommandOutcome again = catalogue.run({"withdraw", id});
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.errors.find("no offer has the UpdateID " + id), std::string::npos);
}

TEST(KoraServiceCommands, RefuseAnArchiveWithErrorsListingEveryProblem) {
    const ServiceCatalogue catalogue;
    const auto archive = catalogue.archive(
        "Bad-1",
        "<dict><key>Command</key><string>Frobnicate</string></dict>"
        "<dict><key>Command</key><string>installpkg</string></dict>");
    const CommandOutcome outcome =
        catalogue.run({"publish", archive.string(), "--product", "P", "--version", "1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("Action 1: unknown command \"Frobnicate\""), std::string::npos);
    EXPECT_NE(outcome.errors.find("Action 2 (installpkg)"), std::string::npos);
    EXPECT_EQ(catalogue.run({"offers"}).output, "");
    EXPECT_TRUE(std::filesystem::is_empty(catalogue.folder() / "archives"));
}

struct BadCommandLine {
    std::vector<std::string> words;
    int status;
    const char* message;
};

TEST(KoraServiceCommands, ExplainEveryBadCommandLine) {
    const ServiceCatalogue catalogue;
    const std::string archive = catalogue.archive("App-1").string();
    const BadCommandLine rows[] = {
        {{"publish", archive, "--version", "1"}, 2, "--product is required"},
        {{"publish", archive, "--product", "P"}, 2, "--version is required"},
        {{"publish", archive, "--product", "P", "--version", "1.x"}, 2, "dotted numbers"},
        {{"publish", archive, "--product", "P", "--version", "3", "--from-version", "2",
          "--to-version", "1"},
         2, "is above --to-version"},
        {{"publish", "/nowhere/A.zip", "--product", "P", "--version", "1"}, 1, "no such file"},
        {{"publish", "--product", "P", "--version", "1"}, 2, "missing ARCHIVE"},
        {{"offers", "--colour"}, 2, "unknown option --colour"},
        {{"withdraw"}, 2, "missing UPDATEID"},
        {{"serve", "--listen", "localhost"}, 2, "ADDRESS:PORT"},
        {{"serve", "--listen", "name:80"}, 1, "not an IP address"},
        {{"journal", "--db=/nowhere/x.db"}, 1, "cannot open the database /nowhere/x.db"},
        {{"fly"}, 2, "unknown command 'fly'"},
    };
    for (const BadCommandLine& row : rows) {
        const CommandOutcome outcome = catalogue.run(row.words);
        EXPECT_EQ(outcome.status, row.status) << row.message;
        EXPECT_NE(outcome.errors.find(row.message), std::string::npos) << outcome.errors;
    }
    const CommandOutcome notADatabase =
        runCommand({KORA_SERVICE_BINARY, "offers", "--db", archive}, ErrorStream::apart);
    EXPECT_EQ(notADatabase.status, 1);
    EXPECT_NE(notADatabase.errors.find("not a database"), std::string::npos);
}

TEST(KoraServiceCommands, EachHasAManualPage) {
    const ServiceCatalogue catalogue;
    for (const char* command : {"serve", "publish", "offers", "withdraw", "journal"}) {
        const CommandOutcome outcome = catalogue.run({command, "--help"});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.output.find(std::string("kora-service ") + command + " - "),
                  std::string::npos);
        EXPECT_NE(outcome.output.find("--db PATH"), std::string::npos);
    }
}

}  // namespace
}  // namespace kora::service
