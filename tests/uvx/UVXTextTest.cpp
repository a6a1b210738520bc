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
    EXPECT_EQ(timeToStr(0.0, -1), "00:00:00.00");
    EXPECT_EQ(timeToStr(3661.5, -1), "01:01:01.50");
    // Rounded once: 59.999 s is a full minute, never "00:00:60.00".
    EXPECT_EQ(timeToStr(59.999, -1), "00:01:00.00");
    EXPECT_EQ(timeToStr(86399.996, -1), "1/00:00:00.00");
    EXPECT_EQ(timeToStr(86400.0 + 7200.0, -1), "1/02:00:00.00");
    EXPECT_EQ(timeToStr(-90.0, -1), "-00:01:30.00");
    EXPECT_EQ(timeToStr(45296.789, 0), "12:34:57");
    EXPECT_EQ(timeToStr(45296.789, 3), "12:34:56.789");
    EXPECT_EQ(timeToStr(-0.001, -1), "00:00:00.00");
}

TEST(UVXText, StrToTime) {
    double s = -1.0;
    CString t = "0:10:20.5";
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 620.5);
    // An ANTAB time hh:mm:ss behind "0:" gives minutes of the day, like hh:mm.mm: 10:20:30 is 620.5.
    t = "0:10:20:30";
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 620.5);
    t = "0:21:0.0043";
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 21 * 60 + 0.0043);
    t = "1:2:3";
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 3723.0);
    t = "1:30";
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 5400.0);
    t = "2";
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 7200.0);
    t = " 0:0:.5 ";
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 0.5);
    // What timeToStr writes comes back.
    t = timeToStr(86400.0 + 7200.25, -1);
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, 93600.25);
    t = timeToStr(-90.0, -1);
    EXPECT_NE(strToTime(t, s), 0);
    EXPECT_EQ(s, -90.0);

    for (const char* bad : {"", "a", "1::2", ":1", "1:", "1:2:3:4:5", "1.2.3", "0:10:2x", "0:-1:0", "1/",
                            "x/1:0", "1,5", "0:1e3"}) {
        t = bad;
        s = 42.0;
        EXPECT_EQ(strToTime(t, s), 0) << bad;
        EXPECT_EQ(s, 42.0) << bad;  // left as it was
    }
}
