// Numbers and times as text, and time text back to seconds.
#include <gtest/gtest.h>

#include <merovane/uvx/UVXText.h>

TEST(UVXText, ToStrByFormat) {
    EXPECT_EQ(toStr(5, "%d"), "5");
    EXPECT_EQ(toStr(-3, "%04d"), "-003");
    EXPECT_EQ(toStr(1.5, "%.5E"), "1.50000E+00");
    EXPECT_EQ(toStr(123456.0, "%.5E"), "1.23456E+05");
    EXPECT_EQ(toStr(0.25, "x=%6.3f%%"), "x= 0.250%");
    // A format that would read the argument as another type falls back to a plain form.
    EXPECT_EQ(toStr(7, "%s"), "7");
    EXPECT_EQ(toStr(2.5, "%d"), "2.5");
    EXPECT_EQ(toStr(1, "%d %d"), "1");
}

TEST(UVXText, TimeToStr) {
    const struct {
        double seconds;
        int decimals;
        const char* text;
    } cases[] = {
        {0.0, -1, "00:00:00.00"},
        {3661.5, -1, "01:01:01.50"},
        // Rounded once: 59.999 s is a full minute, never "00:00:60.00".
        {59.999, -1, "00:01:00.00"},
        {86399.996, -1, "1/00:00:00.00"},
        {86400.0 + 7200.0, -1, "1/02:00:00.00"},
        {-90.0, -1, "-00:01:30.00"},
        {45296.789, 0, "12:34:57"},
        {45296.789, 3, "12:34:56.789"},
        {-0.001, -1, "00:00:00.00"},
    };
    for (const auto& c : cases) EXPECT_EQ(timeToStr(c.seconds, c.decimals), c.text) << c.seconds;
}

TEST(UVXText, StrToTime) {
    const struct {
        CString text;
        double seconds;
    } good[] = {
        {"0:10:20.5", 620.5},
        // An ANTAB time hh:mm:ss behind "0:" gives minutes of the day, like hh:mm.mm: 10:20:30 is 620.5.
        {"0:10:20:30", 620.5},
        {"0:21:0.0043", 21 * 60 + 0.0043},
        {"1:2:3", 3723.0},
        {"1:30", 5400.0},
        {"2", 7200.0},
        {" 0:0:.5 ", 0.5},
        // What timeToStr writes comes back.
        {timeToStr(86400.0 + 7200.25, -1), 93600.25},
        {timeToStr(-90.0, -1), -90.0},
    };
    for (const auto& c : good) {
        CString t = c.text;
        double s = -1.0;
        EXPECT_NE(strToTime(t, s), 0) << c.text.GetString();
        EXPECT_EQ(s, c.seconds) << c.text.GetString();
    }
    for (const char* bad : {"", "a", "1::2", ":1", "1:", "1:2:3:4:5", "1.2.3", "0:10:2x", "0:-1:0", "1/",
                            "x/1:0", "1,5", "0:1e3"}) {
        CString t = bad;
        double s = 42.0;
        EXPECT_EQ(strToTime(t, s), 0) << bad;
        EXPECT_EQ(s, 42.0) << bad;  // left as it was
    }
}
