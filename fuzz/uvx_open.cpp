// Fuzz target: opening a UVX file from any bytes, reading each of its tables, the lookups over them
// and every record.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXFqTbl.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXSkanList.h>
#include <merovane/uvx/AUVXSources.h>
#include <merovane/uvx/AUVXTable.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    AUVXFile file;
    if (!file.Open(new AMemFile(std::vector<unsigned char>(data, data + size)), true)) return 0;
    for (const char* name : {"AN", "SU", "FQ", "SL", "AI"}) {
        std::unique_ptr<AUVXTable> t(file.GetTable(name));
        if (!t) continue;
        if (t->GetName() == "AN") AUVXAntenns ants(*t);
        if (t->GetName() == "SU") {
            AUVXSources sources;
            sources.Init(*t);
        }
        if (t->GetName() == "SL") {
            AUVXSkanList list;
            list.Create(*t);
        }
    }
    AUVXFqTbl fq;
    fq.Init(file);
    // A hostile header may ask for huge records: the file's length bounds what Open accepted, so a
    // record larger than the whole input cannot have passed.
    AUVXRecordReader reader;
    if (!reader.Open(file, 0, 1 << 16)) return 0;
    AUVXGroup g;
    AUVXVisibility vis(1, 1, 1);
    while (reader.Next(g, vis)) {
    }
    return 0;
}
