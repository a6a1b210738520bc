// MessageCapture: collects what the library shows through AfxMessageBox while a test runs.
#pragma once

#include <string>
#include <vector>

#include <merovane/platform/Afx.h>

// Installs itself as the message handler for its lifetime and restores the previous one after.
class MessageCapture {
public:
    MessageCapture() { m_previous = AfxSetMessageBoxHandler(&MessageCapture::record, this); }
    ~MessageCapture() { AfxSetMessageBoxHandler(m_previous, nullptr); }
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

    const std::vector<std::string>& messages() const { return m_messages; }

private:
    static int record(const char* text, void* user) {
        static_cast<MessageCapture*>(user)->m_messages.emplace_back(text ? text : "");
        return 1;
    }

    AfxMessageBoxHandler m_previous = nullptr;
    std::vector<std::string> m_messages;
};
