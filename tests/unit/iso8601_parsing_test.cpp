#include "dates/iso8601_parsing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/logging.h"
#include "support/date_values.h"

namespace kora::test {
namespace {

using Rows = std::vector<std::pair<std::string, std::optional<Date>>>;
const std::optional<Date> none;

void expectRows(const Rows& rows, bool strictly = false) {
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(show(dateWithString(text, strictly)), show(expected)) << '"' << text << '"';
}

// Monday of week 1 is the Monday on or before 4 January: a rule independent of
// the reader's weekday arithmetic.
Date weekDate(int year, int week, int weekday) {
    std::tm fourth = civil(year, 1, 4, 0, 0, 0);
    std::mktime(&fourth);
    return localDate(year, 1, 4 - (fourth.tm_wday + 6) % 7 + (week - 1) * 7 + weekday - 1);
}

// Today's local date, which forms without a year, month or day fall back on.
struct Today {
    std::tm now = localFields(std::time(nullptr));
    int year = now.tm_year + 1900, month = now.tm_mon + 1, day = now.tm_mday;
    int century = year - year % 100;
};

TEST(ISO8601Parsing, ReadsEveryShapeOfDatePartAsLocalTime) {
    const Today t;
    const int c = t.century;
    // clang-format off
    expectRows({
        {"20110307", localDate(2011, 3, 7)}, {"2011066", localDate(2011, 3, 7)},
        {"110307", localDate(c + 11, 3, 7)}, {"-20110307", none}, {"-2011066", none},
        {"-110307", none}, {"12345", none}, {"123456789", none},
        {"2011", localDate(2011, 1, 1)}, {"2011-", localDate(2011, 1, 1)},
        {"2011-03", localDate(2011, 3, 1)}, {"2011-03-07", localDate(2011, 3, 7)},
        {"2011-066", localDate(2011, 3, 7)}, {"2011-0307", localDate(2011, 3, 7)},
        {"2011W101", weekDate(2011, 10, 1)}, {"2011-W10-3", weekDate(2011, 10, 3)},
        {"2011-W10", weekDate(2011, 10, 1)}, {"2011-5", none}, {"2011-03071", none},
        {"-1103-07", localDate(11, 3, 7)},  // the two-digit year stays year 11
        {"--0307", localDate(t.year, 3, 7)}, {"---0307", none},
        {"-066", localDate(t.year, 1, 66)}, {"--066", localDate(t.year, 1, 66)},
        {"066", none}, {"---066", none},
        {"11-03-07", localDate(c + 11, 3, 7)}, {"11-03", localDate(c + 11, 3, 1)},
        {"11-066", localDate(c + 11, 1, 66)}, {"11-0307", localDate(c + 11, 3, 7)},
        {"11W10-2", weekDate(c + 11, 10, 2)}, {"11-W10-2", weekDate(c + 11, 10, 2)},
        // A lone pair of digits is a century.
        {"20", localDate(2000 + t.year % 100, 1, 1)}, {"20-", localDate(2000 + t.year % 100, 1, 1)},
        {"-11", localDate(c + 11, 1, 1)}, {"-11-03", localDate(c + 11, 3, 1)},
        {"-5", localDate(t.year - t.year % 10 + 5, 1, 1)}, {"5-03-07", localDate(c + 5, 3, 7)},
        {"--03", localDate(t.year, 3, 1)}, {"--03-07", localDate(t.year, 3, 7)},
        {"---07", localDate(t.year, t.month, 7)}, {"----07", none},
        {"-W-3", weekDate(t.year, 1, 3)}, {"--W-3", weekDate(t.year, 1, 3)},
        {"-W10-2", weekDate(t.year, 10, 2)}, {"--W10", none}, {"W10", none},
        {"-", none}, {"x", none}, {"", none}, {"  ", none},
    });
    // clang-format on
}

TEST(ISO8601Parsing, StrictModeRefusesWhatLenientModeToleratesAndAlwaysSeparatesWithAColon) {
    const Today t;
    const int c = t.century;
    // clang-format off
    const Rows tolerated = {
        {"  2011-03-07", localDate(2011, 3, 7)}, {"\t\n2011-03-07", localDate(2011, 3, 7)},
        {"2011-W", localDate(2011, 1, 1)}, {"11-W", localDate(c + 11, 1, 1)},
        {"11-3-7", localDate(c + 11, 3, 7)}, {"-5", localDate(t.year - t.year % 10 + 5, 1, 1)},
        {"--W-3", weekDate(t.year, 1, 3)}, {"2011-366", localDate(2012, 1, 1)},
        {"2011366", localDate(2012, 1, 1)},
    };
    // clang-format on
    expectRows(tolerated);
    for (const auto& row : tolerated) EXPECT_FALSE(dateWithString(row.first, true)) << row.first;
    expectRows({{"2012-366", localDate(2012, 12, 31)}, {"-W-3", weekDate(t.year, 1, 3)}}, true);
    // Strict mode always separates hours and minutes with ":", so it even takes
    // the NUL that lenient mode refuses.
    EXPECT_EQ(show(dateWithString("2011-03-07T10.30", true, u'.', nullptr)),
              show(localDate(2011, 3, 7, 10)));
    EXPECT_EQ(show(dateWithString("2011", true, u'\0', nullptr)), show(localDate(2011, 1, 1)));
    EXPECT_THAT([] { dateWithString("2011", false, u'\0', nullptr); },
                testing::ThrowsMessage<std::invalid_argument>("Time separator must not be NUL."));
}

TEST(ISO8601Parsing, ReadsTimeOfDayAndAZoneOnlyDirectlyAfterIt) {
    const Today t;
    const auto at = [](int h, int m, int s) { return utcDate(2011, 3, 7, h, m, s); };
    // clang-format off
    expectRows({
        {"2011-03-07T14:05:09Z", at(14, 5, 9)}, {"2011-03-07T14:05:09+02:00", at(12, 5, 9)},
        {"2011-03-07T14:05:09+0200", at(12, 5, 9)}, {"2011-03-07T14:05:09+2", at(12, 5, 9)},
        {"2011-03-07T14:05:09-05:30", at(19, 35, 9)}, {"2011-03-07T14Z", at(14, 0, 0)},
        {"2011-03-07T9:5:9Z", at(9, 5, 9)}, {"2011-03-07T14:05.5Z", at(14, 5, 30)},
        {"2011-03-07T14:05,25Z", at(14, 5, 15)}, {"2011-03-07T14:05:09.75Z", at(14, 5, 9)},
        {"2011-03-07 14:05:09 +0200", localDate(2011, 3, 7, 14, 5, 9)},
        {"2011-03-07T14:05:09 Z", localDate(2011, 3, 7, 14, 5, 9)},
        {"2011-066T10:00Z", at(10, 0, 0)}, {"2011-03-07T", localDate(2011, 3, 7)},
        {"2011-03-07xyz", localDate(2011, 3, 7)},
        {"T10:30", localDate(t.year, t.month, t.day, 10, 30)},
        {"T10:30.5", localDate(t.year, t.month, t.day, 10, 30, 30)}, {"T", none}, {"Tx", none},
    });
    // clang-format on
    EXPECT_EQ(show(dateWithString("2011-03-07T14.05.09Z", u'.')), show(at(14, 5, 9)));
    EXPECT_EQ(show(dateWithString("2011-03-07T14,05,09Z", u',')), show(at(14, 5, 9)));
    EXPECT_EQ(show(dateWithString("2011-03-07T14h05h09+02h00", u'h')), show(at(12, 5, 9)));
    EXPECT_EQ(show(dateWithString("2011-03-07T14\u223605\u223609Z", u'\u2236')),
              show(at(14, 5, 9)));
    // Another separator ends the time after the hour, and with it the zone.
    EXPECT_EQ(show(dateWithString("2011-03-07T14:05:09Z", u'.')), show(localDate(2011, 3, 7, 14)));
}

// The writer's tests read every week date of 1999-2030 back; here, the edges in local time.
TEST(ISO8601Parsing, ReadsWeekDatesAcrossYearBoundariesAndRollsValuesOutOfRange) {
    // clang-format off
    expectRows({
        {"2009-W01-1", localDate(2008, 12, 29)}, {"2016-W52-7", localDate(2017, 1, 1)},
        {"2009-W53-7", localDate(2010, 1, 3)}, {"2004-W53-6", localDate(2005, 1, 1)},
        {"2009-W00-7", localDate(2008, 12, 28)}, {"2015-W54-1", localDate(2016, 1, 4)},
        {"2011-13-01", localDate(2012, 1, 1)}, {"2011-000", localDate(2010, 12, 31)},
        {"2011-03-07T24:00Z", utcDate(2011, 3, 8)},
        {"2011-03-07T10:75:80Z", utcDate(2011, 3, 7, 11, 16, 20)},
        {"9999-12-31", localDate(9999, 12, 31)},
        // Beyond what a Date can hold there is no date rather than a wrong one.
        {"2011-03-4000001", none}, {"2011-03-07T10:99999999999999999999999Z", none},
    });
    // clang-format on
}

TEST(ISO8601Parsing, ReportsTheBytesItUsedOrTheNotFoundRange) {
    // clang-format off
    const std::tuple<std::string, bool, ISO8601Range> rows[] = {
        {"2011-03-07xyz", false, {0, 10}}, {"  2011-03-07T10:00:00+02:00 tail", false, {2, 25}},
        {"2011-03-07 14:05:09 +0200", false, {0, 19}}, {"2011-03-07T", false, {0, 10}},
        {"T10:30", false, {0, 6}}, {"2011-03-07T14:05Z", true, {0, 17}},
        {"12345", false, kISO8601NotFound}, {" 2011", true, kISO8601NotFound},
        {"9999-12-31", false, {0, 10}}};
    // clang-format on
    for (const auto& [text, strictly, expected] : rows) {
        ISO8601Range range{1, 1};
        dateWithString(text, strictly, &range);
        EXPECT_EQ(range, expected) << text;
    }
}

TEST(ISO8601Parsing, WritesThreeDiagnosticLinesForShortYearsAndMonths) {
    std::vector<std::string> lines;
    setLogSink([&lines](LogChannel channel, int, const std::string& text) {
        lines.push_back((channel == LogChannel::Diagnostic ? "" : "system: ") + text);
    });
    // clang-format off
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"11-03-07", {"(11-03-07) parsing month; segment is 3 and ch is -07"}},
        {"11-03-07\n\x1b",
         {"(11-03-07\\n\\x1b) parsing month; segment is 3 and ch is -07\\n\\x1b"}},
        {"-11-03", {"(-11-03) found 2 digits and one hyphen, so this is either -YY or -YY-MM; "
                    "segment (year) is 11", "(-11-03) month is 3"}},
        {"-5", {"(-5) found 1 digits and one hyphen, so this is either -YY or -YY-MM; segment "
                "(year) is 5"}},
        {"2011-03-07T10:00Z", {}}, {"11-0307", {}}};
    // clang-format on
    for (const auto& [text, expected] : rows) {
        lines.clear();
        dateWithString(text);
        EXPECT_EQ(lines, expected) << text;
    }
    setLogSink({});
}

}  // namespace
}  // namespace kora::test
