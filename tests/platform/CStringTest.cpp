// Tests of CString: the positional rules that the text parsers rely on.
#include <gtest/gtest.h>

#include <merovane/platform/CString.h>

TEST(CString, MidLeftRightClampInsteadOfFailing) {
    CString s("GAIN EF");
    EXPECT_EQ(s.Mid(5), "EF");
    EXPECT_EQ(s.Mid(7), "");      // start at the end
    EXPECT_EQ(s.Mid(100), "");    // start past the end
    EXPECT_EQ(s.Mid(2, -1), "");  // negative count
    EXPECT_EQ(s.Mid(2, 0), "");
    EXPECT_EQ(s.Mid(-3, 2), "GA");   // negative start counts from 0
    EXPECT_EQ(s.Mid(5, 100), "EF");  // count cut at the end
    EXPECT_EQ(s.Left(4), "GAIN");
    EXPECT_EQ(s.Left(-1), "");
    EXPECT_EQ(s.Left(99), "GAIN EF");
    EXPECT_EQ(s.Right(2), "EF");
    EXPECT_EQ(s.Right(0), "");
    EXPECT_EQ(s.Right(99), "GAIN EF");
}

TEST(CString, FindWithStartAndMissingText) {
    CString s("INDEX='R1:4','L1:4'");
    EXPECT_EQ(s.Find("'"), 6);
    EXPECT_EQ(s.Find("'", 7), 11);
    EXPECT_EQ(s.Find('L'), 14);
    EXPECT_EQ(s.Find('L', 15), -1);
    EXPECT_EQ(s.Find("XYZ"), -1);
    EXPECT_EQ(s.Find("R1", 100), -1);
    EXPECT_EQ(s.Find('R', -1), -1);
    EXPECT_EQ(s.Find(""), 0);
    EXPECT_EQ(CString().Find('a'), -1);
}

TEST(CString, TrimTakesExactlyTheSixWhiteSpaceCharacters) {
    CString s(" \t\r\n\v\fA B\f\v\n\r\t ");
    EXPECT_EQ(CString(s).Trim(), "A B");
    EXPECT_EQ(CString(s).TrimLeft(), "A B\f\v\n\r\t ");
    EXPECT_EQ(CString(s).TrimRight(), " \t\r\n\v\fA B");
    // A character outside the set stays, even a control character.
    CString other("\x01 x \x01");
    EXPECT_EQ(other.Trim(), "\x01 x \x01");
    EXPECT_EQ(CString("//x//").Trim('/'), "x");
    EXPECT_EQ(CString("ab,;cd;,").TrimRight(",;"), "ab,;cd");
    EXPECT_EQ(CString("   ").Trim(), "");
}

TEST(CString, ReplaceRemoveAndCaseCountWhatTheyDid) {
    CString s("R1|L1|R2");
    EXPECT_EQ(s.Replace('|', ','), 2);
    EXPECT_EQ(s, "R1,L1,R2");
    EXPECT_EQ(s.Replace("R", "RR"), 2);  // the replacement is not scanned again
    EXPECT_EQ(s, "RR1,L1,RR2");
    EXPECT_EQ(s.Replace("", "x"), 0);
    EXPECT_EQ(s.Remove(','), 2);
    EXPECT_EQ(s, "RR1L1RR2");
    CString t("dpfu=1.5 ft");
    EXPECT_EQ(t.MakeUpper(), "DPFU=1.5 FT");
    EXPECT_LT(CString("A").Compare("B"), 0);
    EXPECT_GT(CString("b").Compare("a"), 0);
    EXPECT_EQ(CString("same").Compare("same"), 0);
}

TEST(CString, ConcatenationConversionAndCharacters) {
    CString a("Error> ");
    CString b = a + "<AAntabData> " + CString('x') + 'y';
    EXPECT_EQ(b, "Error> <AAntabData> xy");
    b += " end";
    b += '!';
    EXPECT_STREQ(static_cast<const char*>(b), "Error> <AAntabData> xy end!");
    EXPECT_EQ(b.GetLength(), 27);
    EXPECT_EQ(b[0], 'E');
    EXPECT_EQ(b.GetAt(7), '<');
    EXPECT_TRUE(CString().IsEmpty());
    EXPECT_TRUE(CString(static_cast<const char*>(nullptr)).IsEmpty());
    EXPECT_NE(CString("a"), CString("b"));
    CString f;
    f.Format("%d|%.5E", 7, 141.42);
    EXPECT_EQ(f, "7|1.41420E+02");
}
