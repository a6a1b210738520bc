// Text helpers of the UVX layer: numbers by printf formats, times as text and back.
#pragma once

#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>

// The value formatted by a printf format, e.g. toStr(5, "%d") is "5", toStr(1.5, "%.5E") "1.50000E+00".
// A format with more than one conversion, or one that would read the argument as another type (or
// with a length modifier or '*'), is not used: the value then comes out by "%d" or "%g".
MEROVANE_API CString toStr(const int& value, const CString& format);
MEROVANE_API CString toStr(const double& value, const CString& format);

// Seconds as "hh:mm:ss.ss" for messages, with "d/" in front for a time of a later day (e.g.
// "1/02:00:00.00") and "-" in front of a negative time. `decimals` is the number of decimals of
// the seconds, -1 for the default of 2.
MEROVANE_API CString timeToStr(double seconds, int decimals);

// Reads "h:m:s" (each field a decimal number, e.g. "0:10:20.5") into h x 3600 + m x 60 + s seconds
// (620.5), "h:m" into h x 3600 + m x 60 and "h" into h x 3600. A form of four fields "0:h:m:s" is
// what a day fraction written hh:mm:ss becomes behind the "0:" that the ANTAB reader puts in front:
// it gives h x 60 + m + s / 60, the value that the three-field form gives for "0:h:m.mm". Returns
// nonzero on success, 0 for text it cannot read (an empty field, a stray character, more fields);
// `seconds` is then left as it was. Blanks around the text are ignored, and what timeToStr writes
// reads back: a leading "-" negates, a leading "d/" adds d days. Fields are not range-checked
// ("0:10:75" is 675 s).
MEROVANE_API int strToTime(CString& text, double& seconds);
