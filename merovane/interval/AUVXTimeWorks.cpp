// AUVXTimeWorks: the interval driver, the record output and the table copy.
#include <merovane/interval/AUVXTimeWorks.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <merovane/foundation/AReadBuffer.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXText.h>

namespace {

// Both blocks of the run, as the host's file system likes them: large sequential transfers.
constexpr int kBlockBytes = 4194304;

// (t - base) / step truncated toward zero to a 32-bit integer. A quotient outside that range (or NaN)
// gives the integer indefinite value, as the processor's truncating conversion does, instead of
// undefined behaviour.
std::int32_t gridIndex(double quotient) {
    if (quotient > -2147483649.0 && quotient < 2147483648.0) return static_cast<std::int32_t>(quotient);
    return INT32_MIN;
}

}  // namespace

AUVXTimeWorks::AWriteBlock::~AWriteBlock() {
    if (owned) std::free(block);
}

AUVXTimeWorks::AUVXTimeWorks() = default;

AUVXTimeWorks::AUVXTimeWorks(const AUVXTimeWorks& other)
    : m_useSkanList(other.m_useSkanList),
      m_errMsg(other.m_errMsg),
      m_outFile(other.m_outFile),
      m_inFile(other.m_inFile),
      m_abortFlag(other.m_abortFlag),
      m_writeBuffer(other.m_writeBuffer),
      m_header(other.m_header) {
    // A block the other object made itself is shared from now on, so the first of the two to go
    // away cannot take it from the other.
    other.adoptWriteBlock();
    m_writeBlock = other.m_writeBlock;
}

AUVXTimeWorks& AUVXTimeWorks::operator=(const AUVXTimeWorks& other) {
    if (this == &other) return *this;
    adoptWriteBlock();
    other.adoptWriteBlock();
    m_useSkanList = other.m_useSkanList;
    m_errMsg = other.m_errMsg;
    m_outFile = other.m_outFile;
    m_inFile = other.m_inFile;
    m_abortFlag = other.m_abortFlag;
    m_writeBuffer = other.m_writeBuffer;
    m_header = other.m_header;
    m_writeBlock = other.m_writeBlock;
    return *this;
}

// The block goes with the last share of m_writeBlock; m_writeBuffer frees nothing when destroyed.
AUVXTimeWorks::~AUVXTimeWorks() {
    adoptWriteBlock();
}

void AUVXTimeWorks::adoptWriteBlock() const {
    unsigned char* block = m_writeBuffer.block;
    if (m_writeBlock != nullptr) {
        if (m_writeBlock->block == block) return;
        // The buffer let go of the shared block through its own Create or Close, which freed it.
        m_writeBlock->owned = false;
        m_writeBlock.reset();
    }
    if (block != nullptr) m_writeBlock = std::make_shared<AWriteBlock>(block);
}

bool AUVXTimeWorks::Filter(AUVXVisibility&, AUVXGroup&, int) {
    return true;
}

bool AUVXTimeWorks::IntervalsExec_Calculate(APtrArray<AUVXVisibility*>&, AArray<AUVXGroup>&, double, double) {
    return true;
}

bool AUVXTimeWorks::IntervalsExec_Init() {
    return true;
}

bool AUVXTimeWorks::IntervalsExec_Finalize() {
    return true;
}

void AUVXTimeWorks::ShowPercent(int) {}

bool AUVXTimeWorks::DropTimeData(AUVXGroup& group, AUVXVisibility& vis, int) {
    if (m_outFile == nullptr) return true;
    return writeRecord(group, vis);
}

bool AUVXTimeWorks::GetSkanList(AUVXFile& file, AUVXSkanList& list) {
    list.Free();
    AUVXTable* table = file.GetTable("SL");
    if (table == nullptr) return false;
    list.Create(*table);
    delete table;
    return true;
}

int AUVXTimeWorks::GetIndexFromSL(AUVXSkanList& list, double mjd, double time) {
    double x = (static_cast<double>(list.refDay) - mjd) * 86400.0 + time;
    for (int i = 0; i < list.count; ++i) {
        if (list[i].start <= x && x < list[i].end) return i;
    }
    return -1;
}

void AUVXTimeWorks::releaseWriteBlock() {
    // The block in m_writeBuffer may be shared with copies of this object: only the share is dropped,
    // and the block goes when no copy holds it any more.
    adoptWriteBlock();
    m_writeBuffer.block = nullptr;
    m_writeBuffer.size = 0;
    m_writeBuffer.used = 0;
    m_writeBlock.reset();
}

bool AUVXTimeWorks::IntervalsExec(AUVXFile* in, AUVXFile* out, double start, double step, int* abort) {
    if (in == nullptr) {
        m_errMsg = "No input UVX-file";
        return false;
    }

    // The header and the state of the run, which lives here and not in the object.
    AUVXHeader inHeader(*in);
    m_header = inHeader;

    double intervalStart = start;
    double intervalEnd = step > 0 ? start + step : start;
    double gridBase = start;
    double lastTime = -1.0;
    bool firstRecord = true;
    int lastPercent = 0;
    const double mjd = m_header.refJD - 2400000.5;
    APtrArray<AUVXVisibility*> vis;
    vis.growBy = 256;
    AArray<AUVXGroup> groups;
    groups.growBy = 256;
    AUVXSkanList skanList;
    AReadBuffer readBuffer;
    // Visibilities of closed intervals (and records that were not kept), ready for the next records:
    // every record of the file has one shape, so a pass allocates no more of them than its longest
    // interval holds.
    APtrArray<AUVXVisibility*> spare;
    spare.growBy = 256;

    // The host's preparation, before anything of this run is stored in the object.
    if (!IntervalsExec_Init()) return false;

    // The scan list; a file without one runs with the empty list.
    if (m_useSkanList && step > 0) GetSkanList(*in, skanList);

    // The input stream from its first record.
    in->SeekUVGroup(0);
    if (!readBuffer.Create(kBlockBytes, in->file)) {
        m_errMsg = "Can`t create read buffer.";
        return false;
    }

    // From here on the hooks see the files of this run.
    m_abortFlag = abort;
    m_inFile = in;
    m_outFile = out;

    // The output: its header now, the records behind it through the write block.
    if (out != nullptr) {
        if (!out->Write(m_header)) {
            m_errMsg = "Error write UVX-header";
            return false;
        }
        out->SeekUVGroup(0);
        releaseWriteBlock();
        if (m_writeBuffer.Create(kBlockBytes, out->file) <= 0) {
            m_errMsg = "Can`t create write buffer";
            return false;
        }
        adoptWriteBlock();
    }

    // The shape of every record of the input. A visibility that a hook gave another shape (or other
    // storage) is not taken again but deleted. `record` holds the visibility the next record is read
    // into, owned here until the interval's array takes it and released on every other way out; a
    // record that Filter or DropTimeData passed over leaves it for the next one.
    const int shapeIF = in->GetHeader().nIF, shapeChan = in->GetHeader().nChan;
    const int shapeStokes = in->GetHeader().nStokes;
    std::unique_ptr<AUVXVisibility> record(new AUVXVisibility(shapeIF, shapeChan, shapeStokes));
    const int shapeCount = record->count;
    auto reusable = [&](const AUVXVisibility* v) {
        return v->nIF == shapeIF && v->nChan == shapeChan && v->nStokes == shapeStokes &&
               v->count == shapeCount && v->capacity >= v->count && (v->count == 0 || v->data != nullptr);
    };
    auto keepSpare = [&](AUVXVisibility* v) {
        if (v == nullptr) return;
        if (reusable(v) && spare.Add(v) >= 0) return;
        delete v;
    };

    // Closes the open interval: hands its records to the hook and empties the arrays. The hook keeps
    // nothing, so its visibilities go to the spares instead of being deleted.
    auto closeInterval = [&]() -> bool {
        if (groups.count > 0 && !IntervalsExec_Calculate(vis, groups, intervalStart, intervalEnd))
            return false;
        for (int k = 0; k < vis.count; ++k) {
            AUVXVisibility* v = vis[k];
            vis[k] = nullptr;
            keepSpare(v);
        }
        vis.Free();
        groups.Free();
        return true;
    };

    // The records.
    const int nGroups = in->nGroups;
    const int visBytes = shapeCount * static_cast<int>(sizeof(AUVXComplex));
    for (int index = 0; index < nGroups; ++index) {
        if (abort != nullptr && *abort != 0) {
            m_errMsg = "User abort";
            return false;
        }

        int percent = static_cast<int>((index + 1) * 100.0 / nGroups + 0.5);
        if (percent != lastPercent) {
            ShowPercent(percent);
            lastPercent = percent;
        }

        AUVXGroup group;
        if (!readBuffer.Read(&group, static_cast<int>(sizeof(AUVXGroup)))) {
            m_errMsg = toStr(index, "Error reading AUVXGroup #%d");
            return false;
        }
        if (record != nullptr && !reusable(record.get())) record.reset();
        if (record == nullptr) {
            if (spare.count > 0) {
                record.reset(spare[spare.count - 1]);
                spare[--spare.count] = nullptr;
            } else {
                record.reset(new AUVXVisibility(shapeIF, shapeChan, shapeStokes));
            }
        }
        if (!readBuffer.Read(record->data, visBytes)) {
            m_errMsg = toStr(index, "Error reading Visibility #%d");
            return false;
        }

        if (!Filter(*record, group, index)) continue;

        double t = group.time;
        if (!(t >= intervalStart)) {
            if (!DropTimeData(group, *record, index)) return false;
            continue;
        }

        if (firstRecord) {
            // The first interval is not put on the grid: it runs from `start`, cut at the end of the
            // scan that holds its first record.
            firstRecord = false;
            int i = GetIndexFromSL(skanList, mjd, t);
            if (i >= 0) {
                gridBase = skanList[i].start;
                intervalEnd = std::min(skanList[i].end, intervalEnd);
            }
        }

        bool closes = step > 0 ? t >= intervalEnd : t != lastTime;
        if (closes) {
            if (!closeInterval()) return false;
            lastTime = t;
            if (!(step > 0)) {
                intervalStart = intervalEnd = t;
            } else {
                // The grid restarts at the scan that holds t; a record outside every scan keeps it.
                int i = GetIndexFromSL(skanList, mjd, t);
                if (i >= 0) gridBase = skanList[i].start;
                std::int32_t k = gridIndex((t - gridBase) / step);
                intervalStart = k * step + gridBase;
                intervalEnd = intervalStart + step;
                if (i >= 0) intervalEnd = std::min(skanList[i].end, intervalEnd);
            }
        }

        groups.Add(group);
        vis.Add(record.get());
        record.release();
    }

    // The last interval.
    if (!closeInterval()) return false;

    if (!IntervalsExec_Finalize()) return false;

    // The end of the output: waiting records, the header with its final statistics, the tables.
    if (m_outFile != nullptr) {
        if (m_writeBuffer.Flush() < 0) {
            m_errMsg = "Error flush UV data";
            return false;
        }
        if (!m_outFile->Write(m_header)) {
            m_errMsg = "Error write UVX-header";
            return false;
        }
        if (!WriteTable(*in, *m_outFile)) {
            m_errMsg = "Error write UVX-table";
            return false;
        }
    }
    return true;
}

bool AUVXTimeWorks::writeRecord(const AUVXGroup& group, const AUVXVisibility& vis) {
    if (m_writeBuffer.Write(&group, static_cast<int>(sizeof(AUVXGroup))) <= 0) {
        m_errMsg = "Error write UVG data";
        return false;
    }
    if (m_writeBuffer.Write(vis.data, vis.count * static_cast<int>(sizeof(AUVXComplex))) <= 0) {
        m_errMsg = "Error write Visibility data";
        return false;
    }
    // Every element counts, flagged or not, one after the other.
    WidenStatistics(m_header, vis.data, vis.count);
    return true;
}

bool AUVXTimeWorks::WriteData(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double, double) {
    for (int k = 0; k < vis.count; ++k) {
        if (!writeRecord(groups[k], *vis[k])) return false;
    }
    return true;
}

bool AUVXTimeWorks::WriteTable(AUVXFile& in, AUVXFile& out) {
    if (m_outFile == nullptr) return true;
    AUVXTableHeader tables(in);
    for (int i = 0; i < tables.nTables; ++i) {
        if (!in.Seek(tables.positions[i])) {
            m_errMsg = toStr(i, "Error SEEK to UVX-table #%d");
            return false;
        }
        AUVXTable table(*in.file);
        if (!table.IsValid()) {
            m_errMsg = toStr(i, "Error read UVX-table #%d");
            return false;
        }
        if (!m_outFile->AddTable(table)) {
            m_errMsg = toStr(i, "Error add UVX-table #%d");
            return false;
        }
    }
    if (!out.Close()) {
        m_errMsg = "Error close UVX-file";
        return false;
    }
    return true;
}
