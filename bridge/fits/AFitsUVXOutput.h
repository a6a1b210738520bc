// AFitsUVXOutput: a UVX file being written under a temporary name, renamed into place when complete.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXTable.h>

// A converter writes records straight away and adds tables at the end. Nothing appears under the
// final name unless Finish succeeds; Abandon (also run by the destructor) removes the temporary file.
class AFitsUVXOutput {
public:
    AFitsUVXOutput() = default;
    AFitsUVXOutput(const AFitsUVXOutput&) = delete;
    AFitsUVXOutput& operator=(const AFitsUVXOutput&) = delete;
    ~AFitsUVXOutput() { Abandon(); }

    // Creates "<path>.part" and stores `header`; false with `m_err`.
    bool Open(const std::string& path, const AUVXHeader& header);
    bool Write(const AUVXGroup& group, const AUVXComplex* elements);
    // Stores the header with its statistics, the tables in order, completes the file and renames it.
    bool Finish(std::vector<std::unique_ptr<AUVXTable>>& tables);
    void Abandon();

    int ElementCount() const { return m_elements; }
    long long Records() const { return m_records; }

    std::string m_err;

private:
    std::string m_path;
    std::string m_temp;
    AUVXFile m_file;
    // Released before the file closes: its destructor still writes through the file's stream.
    std::unique_ptr<AUVXRecordWriter> m_writer;
    int m_elements = 0;
    long long m_records = 0;
    bool m_open = false;
};

// The same protection for any other file written beside the output (the ANTAB text): write to
// TempName(path), then CommitFile or DiscardFile.
std::string AFitsTempName(const std::string& path);
bool AFitsCommitFile(const std::string& path, std::string& err);
void AFitsDiscardFile(const std::string& path);
