// Calendar: Julian dates to calendar dates and days of the year to Julian dates.
#pragma once

#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>

// The lowest and highest day numbers (jd + 0.5 truncated toward zero) that JulianToDate turns into a
// date: its 32-bit steps are exact from the one to the other and overflow one day beyond either.
constexpr int kJulianDayLowest = -21476238;
constexpr int kJulianDayHighest = 21472909;

// The calendar date that holds at Julian date `jd` (Julian calendar before 15 October 1582,
// Gregorian from then on) in day (from 1), month (from 1) and year, and as the text "dd-mm-YYYY".
// Throws COleException 0x80004005 for a jd whose day number jd + 0.5, truncated toward zero, lies
// outside kJulianDayLowest..kJulianDayHighest (or is NaN), leaving the three integers unchanged.
// Otherwise the three integers are stored first; then it throws 0x80004005 for a year below 1900 or
// a month or day out of range, and 0x80070057 for a failure of the time functions.
MEROVANE_API CString JulianToDate(double jd, int& day, int& month, int& year);

// Julian date of 0h on day `dayOfYear` (1 is the first of January) of `year`. Valid from 1901 to
// 2099, where every fourth year is a leap year; a day past the end of the year runs on into the next.
MEROVANE_API double DayOfYearToJulian(int dayOfYear, int year);
