#include "dates/iso8601_unparsing.h"

#include <gtest/gtest.h>

#include <chrono>

#include "dates/iso8601_parsing.h"
#include "support/date_values.h"

using namespace kora;
using kora::test::show;
using kora::test::utcDate;
using std::chrono::milliseconds;

namespace {

TEST(ISO8601Unparsing, WritesCalendarDatesInUTCWithoutFractions) {
    const Date date = utcDate(2011, 3, 7, 14, 5, 9) + milliseconds(750);
    EXPECT_EQ(ISO8601DateString(date), "2011-03-07T14:05:09Z");
    EXPECT_EQ(ISO8601DateStringWithTime(date, false), "2011-03-07");
    EXPECT_EQ(ISO8601DateStringWithTimeSeparator(date, u'.'), "2011-03-07T14.05.09Z");
    EXPECT_EQ(ISO8601DateStringWithTimeSeparator(date, u'\u2236'),
              "2011-03-07T14\u223605\u223609Z");
    EXPECT_EQ(ISO8601DateString(kEpoch - milliseconds(500)), "1969-12-31T23:59:59Z");
    EXPECT_EQ(prepareDateFormatWithTimeSeparator("'T'HH:mm:ss'Z'", u'.'), "'T'HH.mm.ss'Z'");
}

TEST(ISO8601Unparsing, WritesISOWeeksAcrossYearBoundariesAndOrdinalDays) {
    const std::pair<Date, const char*> weeks[] = {
        {utcDate(2008, 12, 29), "2009-W01-01"}, {utcDate(2005, 1, 1), "2004-W53-06"},
        {utcDate(2010, 1, 3), "2009-W53-07"},   {utcDate(2012, 12, 31), "2013-W01-01"},
        {utcDate(2017, 1, 1), "2016-W52-07"},   {utcDate(2000, 1, 1), "1999-W52-06"},
        {utcDate(2021, 1, 3), "2020-W53-07"},
    };
    for (const auto& [date, text] : weeks)
        EXPECT_EQ(ISO8601WeekDateStringWithTime(date, false), text);
    const Date date = utcDate(2011, 3, 7, 14, 5, 9);
    EXPECT_EQ(ISO8601WeekDateString(date), "2011-W10-01T14:05:09Z");
    EXPECT_EQ(ISO8601WeekDateStringWithTimeSeparator(date, u'.'), "2011-W10-01T14.05.09Z");
    EXPECT_EQ(ISO8601OrdinalDateString(date), "2011-066T14:05:09Z");
    EXPECT_EQ(ISO8601OrdinalDateStringWithTime(utcDate(2012, 12, 31), false), "2012-366");
}

TEST(ISO8601Unparsing, EveryFormReadsBackAsTheSameInstant) {
    for (Date date = utcDate(1999, 12, 20, 13, 37, 5); date < utcDate(2031, 1, 10);
         date += std::chrono::hours(24)) {
        const auto expected = show(date);
        ASSERT_EQ(show(dateWithString(ISO8601DateString(date))), expected);
        ASSERT_EQ(show(dateWithString(ISO8601WeekDateString(date))), expected)
            << ISO8601WeekDateString(date);
        ASSERT_EQ(show(dateWithString(ISO8601OrdinalDateString(date))), expected);
    }
}

}  // namespace
