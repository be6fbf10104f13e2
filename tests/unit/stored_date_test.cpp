#include "dates/stored_date.h"

#include <gtest/gtest.h>

#include <chrono>

#include "support/date_values.h"

namespace kora::test {
namespace {

TEST(StoredDate, WritesLocalWallClockAndReadsItBackIgnoringTheOffset) {
    const std::string text = storedDateText(localDate(2011, 3, 7, 14, 5, 9));
    EXPECT_EQ(text.substr(0, 20), "2011-03-07 14:05:09 ");
    EXPECT_TRUE(text.size() == 25 && (text[20] == '+' || text[20] == '-')) << text;
    EXPECT_EQ(show(dateFromStoredText("2011-03-07 14:05:09 -1100")),
              show(localDate(2011, 3, 7, 14, 5, 9)));
    EXPECT_EQ(show(dateFromStoredText("not a date")), "none");
}

TEST(StoredDate, RoundTripsExactlyToTheSecondEvenWhenClocksGoBack) {
    using std::chrono::milliseconds;
    const Date dates[] = {
        kEpoch,
        utcDate(2011, 3, 7, 12, 5, 9) + milliseconds(999),
        utcDate(1969, 7, 20, 20, 17, 40),
        utcDate(2023, 3, 26, 1, 30),   // just after clocks go forward in Helsinki
        utcDate(2023, 10, 29, 0, 30),  // 03:30 summer time in Helsinki ...
        utcDate(2023, 10, 29, 1, 30),  // ... and 03:30 winter time an hour later
    };
    for (const auto date : dates) {
        const auto whole = std::chrono::floor<std::chrono::seconds>(date);
        EXPECT_EQ(show(dateFromStoredText(storedDateText(date))), show(whole))
            << storedDateText(date);
    }
}

}  // namespace
}  // namespace kora::test
