// AFitsUVXOutput: the UVX side of an import, through the record writer of the UVX layer.
#include "AFitsUVXOutput.h"

#include <cstdio>

std::string AFitsTempName(const std::string& path) {
    return path + ".part";
}

bool AFitsCommitFile(const std::string& path, std::string& err) {
    if (std::rename(AFitsTempName(path).c_str(), path.c_str()) != 0) {
        err = path + ": cannot be put in place (rename from " + AFitsTempName(path) + " failed)";
        std::remove(AFitsTempName(path).c_str());
        return false;
    }
    return true;
}

void AFitsDiscardFile(const std::string& path) {
    std::remove(AFitsTempName(path).c_str());
}

bool AFitsUVXOutput::Open(const std::string& path, const AUVXHeader& header) {
    m_path = path;
    m_temp = AFitsTempName(path);
    if (!m_file.Create(m_temp.c_str())) {
        m_err = path + ": " + m_file.m_errMsg.str();
        return false;
    }
    m_open = true;
    m_writer = std::make_unique<AUVXRecordWriter>();
    if (!m_writer->Open(m_file, header, true)) {
        m_err = path + ": " + m_writer->m_errMsg.str();
        return false;
    }
    m_elements = m_writer->ElementCount();
    return true;
}

bool AFitsUVXOutput::Write(const AUVXGroup& group, const AUVXComplex* elements) {
    if (!m_writer->Write(group, elements)) {
        m_err = m_path + ": " + m_writer->m_errMsg.str();
        return false;
    }
    ++m_records;
    return true;
}

bool AFitsUVXOutput::Finish(std::vector<std::unique_ptr<AUVXTable>>& tables) {
    if (!m_writer->Finish()) {
        m_err = m_path + ": " + m_writer->m_errMsg.str();
        return false;
    }
    m_writer.reset();
    for (auto& table : tables) {
        if (!m_file.AddTable(*table)) {
            m_err = m_path + ": cannot add table " + table->GetName().str() + ": " + m_file.m_errMsg.str();
            return false;
        }
    }
    if (!m_file.Close()) {
        m_err = m_path + ": cannot complete the file: " + m_file.m_errMsg.str();
        return false;
    }
    m_open = false;
    if (!AFitsCommitFile(m_path, m_err)) return false;
    return true;
}

void AFitsUVXOutput::Abandon() {
    m_writer.reset();
    if (!m_open) return;
    // The stream is released, then the remains are removed.
    m_file.Close();
    std::remove(m_temp.c_str());
    m_open = false;
}
