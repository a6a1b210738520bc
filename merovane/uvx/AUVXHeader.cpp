// AUVXHeader: construction and the text fields.
#include <merovane/uvx/AUVXHeader.h>

#include <cstring>

#include <merovane/uvx/AUVXFile.h>

AUVXHeader::AUVXHeader() {
    std::memset(static_cast<void*>(this), 0, sizeof(AUVXHeader));
}

AUVXHeader::AUVXHeader(AUVXFile& file) {
    // All 466 bytes travel, including those this library does not interpret.
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&file.GetHeader()), sizeof(AUVXHeader));
}

CString AUVXHeader::Text(const char* field, int size) {
    int n = 0;
    while (n < size && field[n] != '\0') ++n;
    return CString(field, n);
}

void AUVXHeader::SetText(char* field, int size, const char* text) {
    std::memset(field, 0, static_cast<std::size_t>(size));
    if (text == nullptr) return;
    std::size_t n = std::strlen(text);
    if (n > static_cast<std::size_t>(size)) n = static_cast<std::size_t>(size);
    std::memcpy(field, text, n);
}
