// uvx-count: prints the record count and observation date of a UVX file, through the installed library.
#include <cstdio>

#include <merovane/merovane.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: uvx-count FILE.uvx\n");
        return 2;
    }
    AUVXFile file;
    if (!file.Open(argv[1])) {
        std::fprintf(stderr, "%s\n", static_cast<const char*>(file.m_errMsg));
        return 1;
    }
    AUVXHeader header(file);
    int day = 0, month = 0, year = 0;
    CString date = JulianToDate(header.refJD, day, month, year);
    std::printf("%d records, reference day %s\n", file.nGroups, static_cast<const char*>(date));
    file.Close();
    return 0;
}
