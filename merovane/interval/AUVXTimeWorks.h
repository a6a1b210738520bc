// AUVXTimeWorks: the one pass over the UV stream of a UVX file, cut into time intervals for a host's hooks.
#pragma once

#include <cstdint>
#include <memory>

#include <merovane/foundation/AArray.h>
#include <merovane/foundation/AWriteBuffer.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXSkanList.h>

// The frame of every calibration pass that needs all baselines of a moment together. A host derives
// from it, overrides the protected hooks and calls IntervalsExec. The hooks are called in this order:
// IntervalsExec_Init once before any record; per record Filter, then DropTimeData (record before the
// open interval) or the interval logic; IntervalsExec_Calculate once per interval that holds a
// record; IntervalsExec_Finalize once, only when everything before it agreed. The state of a run
// (interval edges, the interval's records, the scan list, the read block) lives in IntervalsExec, so
// the object carries nothing from one run to the next but its members below.
//
// Choices this class makes where its contract leaves room:
//
// - The write block. m_writeBuffer's block is shared by every copy of the object (copies take the
//   pointer as a value). The copies hold it together: the last of them to go away releases it, and
//   a run never frees a block that another copy may still be using; it lets go of its share and
//   allocates a block of its own. The destructor neither flushes nor closes anything (after a failed
//   run the host disposes of the output, which may be gone by then). A block that a derived class
//   creates itself with m_writeBuffer.Create (to call WriteData outside a run) is taken into the same
//   sharing at the next copy, run or destruction, so it is released with the object. Create and
//   Close of m_writeBuffer free the block it held before, so a derived class calls them only while
//   no copy of the object shares that block.
// - m_useSkanList and m_errMsg are public members: the host sets the one before a run and reads the
//   other after a run that returned false. The other members are protected, for derived classes.
// - Writing the output. A failure to store the header (at the start or at the end of the run) or to
//   flush the last block ends the run as failed, with the texts "Error write UVX-header" and
//   "Error flush UV data": the records or statistics would otherwise be missing from a file reported
//   as complete. For the same reason WriteTable also fails when a table of the input cannot be read,
//   appended to the output or when the output cannot be completed; the driver reports each of those
//   as "Error write UVX-table" like a failed seek.
// - A null input file fails at once, before IntervalsExec_Init, with "No input UVX-file".
//
// There is no virtual destructor: the six hooks are the only virtual operations, in slot order.
class MEROVANE_API AUVXTimeWorks {
public:
    AUVXTimeWorks();
    // Copies every member as a value, the file pointers and the write block's pointer included.
    AUVXTimeWorks(const AUVXTimeWorks& other);
    AUVXTimeWorks& operator=(const AUVXTimeWorks& other);
    ~AUVXTimeWorks();

    // Walks every record of `in` (required; it stays open). `out`, if not null, is a created UVX file
    // that receives the header (as IntervalsExec_Init left m_header), the records that the hooks write,
    // the final statistics and a copy of every table of `in`, and is closed at the end of a
    // successful run. `start` and `step` are seconds on the axis of AUVXGroup::time: records before
    // `start` go to DropTimeData, and `step` is an interval's length; a step not above 0 gives one
    // interval per time stamp, the hook getting start = end. A nonzero int behind `abort` (may be
    // null) stops the run at the next record. Returns true when the whole file was walked and every
    // hook agreed; false with m_errMsg set otherwise:
    //   "Can`t create read buffer.", "Can`t create write buffer", "User abort",
    //   "Error reading AUVXGroup #<index>", "Error reading Visibility #<index>",
    //   "Error write UVX-table", "Error write UVX-header", "Error flush UV data", "No input UVX-file",
    //   or the text a hook set when it gave false. After a failure the output is neither flushed nor
    //   closed.
    bool IntervalsExec(AUVXFile* in, AUVXFile* out, double start, double step, int* abort);

    // Intervals follow the scan list ("SL") of the input when step > 0. False after construction.
    bool m_useSkanList = false;
    // Text of the last failure; never cleared, so a later success leaves it in place.
    CString m_errMsg;

protected:
    // Output file of the run, null for none; null after construction.
    AUVXFile* m_outFile = nullptr;
    // Input file of the run.
    AUVXFile* m_inFile = nullptr;
    // The host's abort flag of the run, may be null.
    int* m_abortFlag = nullptr;
    // Output stream of the run, positioned at the first record of m_outFile.
    AWriteBuffer m_writeBuffer;
    // Copy of the input header, then the output header; all bytes 0 until the first run.
    AUVXHeader m_header;

    // Slot 0. Sees every record as read; false skips it entirely (no DropTimeData, no interval, no
    // output). `index` is the record's place in the stream, from 0. May change the record in place.
    virtual bool Filter(AUVXVisibility& vis, AUVXGroup& group, int index);
    // Slot 1. The records of one interval, in stream order, at least one; vis[k] and groups[k] belong
    // together. start < end on a grid of step seconds, or start = end (the time stamp) without a step.
    // The hook may change the records but keeps nothing: the driver deletes them afterwards. False
    // stops the run; the hook sets m_errMsg.
    virtual bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups,
                                         double start, double end);
    // Slot 2. Runs first, on the new m_header (which it may change for the output) but with
    // m_inFile, m_outFile and m_abortFlag still of the run before. False stops the run at once.
    virtual bool IntervalsExec_Init();
    // Slot 3. Runs after the last interval and before the output is finished, so it may still write.
    virtual bool IntervalsExec_Finalize();
    // Slot 4. Progress in percent, 1 to 100, called only when the value changes.
    virtual void ShowPercent(int percent);
    // Slot 5. A record before the open interval. The base class passes it through to the output (if
    // the run has one) and returns true; false from it is "Error write UVG data" or
    // "Error write Visibility data". `index` is not used here.
    virtual bool DropTimeData(AUVXGroup& group, AUVXVisibility& vis, int index);

    // Writes vis[k] with groups[k] for k below the count of `vis` (`groups` must be as long), stopping
    // at the first failure, and widens the statistics of m_header. Needs a run with an output file.
    // Takes no ownership; `start` and `end` are not used. False with "Error write UVG data" or
    // "Error write Visibility data" (a visibility without elements fails this way too).
    bool WriteData(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start, double end);
    // Copies every table of `in`, in order, to m_outFile and closes `out`. True at once when the run
    // has no output. False with "Error SEEK to UVX-table #<i>" when the seek to table i failed,
    // "Error read UVX-table #<i>" when it could not be read, "Error add UVX-table #<i>" when the
    // output refused it (the output is not closed in these cases), "Error close UVX-file" when
    // completing the output failed.
    bool WriteTable(AUVXFile& in, AUVXFile& out);

    // Empties `list` and fills it from the table "SL" of `file`. False if the file has no such table;
    // true otherwise, whatever the table held.
    bool GetSkanList(AUVXFile& file, AUVXSkanList& list);
    // The lowest index of an item of `list` that holds x = (refDay - mjd) x 86400 + time, start <= x <
    // end, or -1. `mjd` is the reference day of the file as a Modified Julian Date, `time` in seconds.
    int GetIndexFromSL(AUVXSkanList& list, double mjd, double time);

private:
    // One record to m_writeBuffer and into the statistics.
    bool writeRecord(const AUVXGroup& group, const AUVXVisibility& vis);
    // Lets go of this object's share of the write block before a new one is allocated.
    void releaseWriteBlock();
    // Makes m_writeBlock the share of m_writeBuffer.block: a block that m_writeBuffer has now and that
    // is not the shared one is taken in; the shared one, which the buffer then no longer holds, was
    // released by the buffer's own Create or Close and is not released again.
    void adoptWriteBlock() const;

    // A block of m_writeBuffer and whether it is still to be released with its last share.
    struct AWriteBlock {
        explicit AWriteBlock(unsigned char* b) : block(b) {}
        AWriteBlock(const AWriteBlock&) = delete;
        AWriteBlock& operator=(const AWriteBlock&) = delete;
        ~AWriteBlock();
        unsigned char* block;
        bool owned = true;
    };
    // The block of m_writeBuffer as shared by the copies of this object; empty when this object holds
    // no block. Adopted lazily, so it may lag behind m_writeBuffer until adoptWriteBlock runs.
    mutable std::shared_ptr<AWriteBlock> m_writeBlock;
};
