// CString: positional text operations with clamping instead of failures.
#include <merovane/platform/CString.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

const char kWhiteSpace[] = " \t\r\n\v\f";

bool isIn(char ch, const char* set) {
    return ch != '\0' && std::strchr(set, ch) != nullptr;
}

}  // namespace

CString::CString(const char* text) : m_text(text ? text : "") {}

CString::CString(const char* text, int length) {
    if (text && length > 0) m_text.assign(text, static_cast<std::size_t>(length));
}

CString::CString(char ch, int repeat) {
    if (repeat > 0) m_text.assign(static_cast<std::size_t>(repeat), ch);
}

int CString::Find(const char* sub, int start) const {
    if (start < 0 || start > GetLength() || sub == nullptr) return -1;
    std::size_t at = m_text.find(sub, static_cast<std::size_t>(start));
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

int CString::Find(char ch, int start) const {
    if (start < 0 || start >= GetLength()) return -1;
    std::size_t at = m_text.find(ch, static_cast<std::size_t>(start));
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

CString CString::Mid(int first) const {
    return Mid(first, GetLength());
}

CString CString::Mid(int first, int count) const {
    if (first < 0) first = 0;
    if (count < 1 || first >= GetLength()) return CString();
    if (count > GetLength() - first) count = GetLength() - first;
    return CString(m_text.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(count)));
}

CString CString::Left(int count) const {
    return Mid(0, count);
}

CString CString::Right(int count) const {
    if (count < 1) return CString();
    if (count >= GetLength()) return *this;
    return Mid(GetLength() - count, count);
}

CString& CString::Trim() {
    return TrimRight().TrimLeft();
}
CString& CString::TrimLeft() {
    return TrimLeft(kWhiteSpace);
}
CString& CString::TrimRight() {
    return TrimRight(kWhiteSpace);
}
CString& CString::Trim(char target) {
    return TrimRight(target).TrimLeft(target);
}

CString& CString::TrimLeft(char target) {
    const char set[2] = {target, '\0'};
    return TrimLeft(set);
}

CString& CString::TrimRight(char target) {
    const char set[2] = {target, '\0'};
    return TrimRight(set);
}

CString& CString::Trim(const char* targets) {
    return TrimRight(targets).TrimLeft(targets);
}

CString& CString::TrimLeft(const char* targets) {
    if (targets == nullptr) return *this;
    std::size_t n = 0;
    while (n < m_text.size() && isIn(m_text[n], targets)) ++n;
    m_text.erase(0, n);
    return *this;
}

CString& CString::TrimRight(const char* targets) {
    if (targets == nullptr) return *this;
    std::size_t n = m_text.size();
    while (n > 0 && isIn(m_text[n - 1], targets)) --n;
    m_text.resize(n);
    return *this;
}

int CString::Replace(char from, char to) {
    int count = 0;
    for (char& ch : m_text) {
        if (ch == from) {
            ch = to;
            ++count;
        }
    }
    return count;
}

int CString::Replace(const char* from, const char* to) {
    if (from == nullptr || *from == '\0') return 0;
    if (to == nullptr) to = "";
    const std::size_t fromLen = std::strlen(from), toLen = std::strlen(to);
    int count = 0;
    std::size_t at = 0;
    while ((at = m_text.find(from, at)) != std::string::npos) {
        m_text.replace(at, fromLen, to);
        at += toLen;
        ++count;
    }
    return count;
}

int CString::Remove(char ch) {
    std::size_t before = m_text.size();
    std::string kept;
    kept.reserve(before);
    for (char c : m_text)
        if (c != ch) kept += c;
    m_text.swap(kept);
    return static_cast<int>(before - m_text.size());
}

CString& CString::MakeUpper() {
    for (char& ch : m_text) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return *this;
}

void CString::Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int needed = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (needed < 0) {
        m_text.clear();
    } else {
        std::string out(static_cast<std::size_t>(needed) + 1, '\0');
        std::vsnprintf(&out[0], out.size(), format, args);
        out.resize(static_cast<std::size_t>(needed));
        m_text.swap(out);
    }
    va_end(args);
}

int CString::Compare(const char* other) const {
    return std::strcmp(m_text.c_str(), other ? other : "");
}

int CString::CompareNoCase(const char* other) const {
    CString a(*this), b(other);
    return a.MakeUpper().Compare(b.MakeUpper());
}

CString& CString::operator+=(const CString& other) {
    m_text += other.m_text;
    return *this;
}

CString& CString::operator+=(const char* other) {
    if (other) m_text += other;
    return *this;
}

CString& CString::operator+=(char ch) {
    m_text += ch;
    return *this;
}

CString operator+(const CString& a, const CString& b) {
    return CString(a.m_text + b.m_text);
}
CString operator+(const CString& a, const char* b) {
    return CString(a.m_text + (b ? b : ""));
}
CString operator+(const char* a, const CString& b) {
    return CString((a ? a : "") + b.m_text);
}
CString operator+(const CString& a, char b) {
    return CString(a.m_text + b);
}
CString operator+(char a, const CString& b) {
    return CString(std::string(1, a) + b.m_text);
}
