// CString: the text class of members and messages, with the positional rules the parsers rely on.
#pragma once

#include <cstddef>
#include <string>

#include <merovane/platform/Export.h>

// A value-semantic byte string. Positions and counts are ints, as the parsers compute them:
// a start past the end or a negative count yields empty text instead of failing, and Find
// answers -1 for "not found". White space for the Trim family is blank, tab, CR, LF, VT and FF.
class MEROVANE_API CString {
public:
    CString() = default;
    CString(const char* text);  // null gives empty text
    CString(const char* text, int length);
    explicit CString(char ch, int repeat = 1);
    CString(const std::string& text) : m_text(text) {}

    int GetLength() const { return static_cast<int>(m_text.size()); }
    bool IsEmpty() const { return m_text.empty(); }
    void Empty() { m_text.clear(); }

    // Index of the first occurrence at or after start, -1 if none or if start lies outside.
    int Find(const char* sub, int start = 0) const;
    int Find(char ch, int start = 0) const;

    // first below 0 counts as 0; first past the end or count below 1 gives empty text.
    CString Mid(int first) const;
    CString Mid(int first, int count) const;
    CString Left(int count) const;   // count below 1: empty
    CString Right(int count) const;  // count below 1: empty

    CString& Trim();
    CString& TrimLeft();
    CString& TrimRight();
    CString& Trim(char target);
    CString& TrimLeft(char target);
    CString& TrimRight(char target);
    CString& Trim(const char* targets);
    CString& TrimLeft(const char* targets);
    CString& TrimRight(const char* targets);

    // Each returns the number of replacements or removals made.
    int Replace(char from, char to);
    int Replace(const char* from, const char* to);  // an empty `from` replaces nothing
    int Remove(char ch);

    CString& MakeUpper();

    // printf-style formatting into this text.
    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));

    int Compare(const char* other) const;  // <0, 0, >0 as strcmp
    int CompareNoCase(const char* other) const;

    char GetAt(int index) const { return m_text[static_cast<std::size_t>(index)]; }
    char operator[](int index) const { return GetAt(index); }

    operator const char*() const { return m_text.c_str(); }
    const char* GetString() const { return m_text.c_str(); }
    const std::string& str() const { return m_text; }

    CString& operator+=(const CString& other);
    CString& operator+=(const char* other);
    CString& operator+=(char ch);

    friend MEROVANE_API CString operator+(const CString& a, const CString& b);
    friend MEROVANE_API CString operator+(const CString& a, const char* b);
    friend MEROVANE_API CString operator+(const char* a, const CString& b);
    friend MEROVANE_API CString operator+(const CString& a, char b);
    friend MEROVANE_API CString operator+(char a, const CString& b);

    friend bool operator==(const CString& a, const CString& b) { return a.m_text == b.m_text; }
    friend bool operator==(const CString& a, const char* b) { return a.Compare(b) == 0; }
    friend bool operator==(const char* a, const CString& b) { return b.Compare(a) == 0; }
    friend bool operator!=(const CString& a, const CString& b) { return !(a == b); }
    friend bool operator!=(const CString& a, const char* b) { return !(a == b); }
    friend bool operator!=(const char* a, const CString& b) { return !(a == b); }
    friend bool operator<(const CString& a, const CString& b) { return a.m_text < b.m_text; }

private:
    std::string m_text;
};
