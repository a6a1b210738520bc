// Tests of the message sink, the OLE exception and aligned allocation.
#include <gtest/gtest.h>

#include <cstdint>

#include <merovane/platform/Afx.h>
#include <merovane/platform/AlignedAlloc.h>
#include "support/MessageCapture.h"

TEST(Afx, MessageBoxGoesToTheInstalledHandlerAndBack) {
    {
        MessageCapture capture;
        EXPECT_EQ(AfxMessageBox("first"), 1);
        AfxMessageBox("second");
        ASSERT_EQ(capture.messages().size(), 2u);
        EXPECT_EQ(capture.messages()[0], "first");
        EXPECT_EQ(capture.messages()[1], "second");
    }
    // With the capture gone the default handler is back: it answers 1 and writes to stderr.
    testing::internal::CaptureStderr();
    EXPECT_EQ(AfxMessageBox("to stderr"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to stderr\n");
}

TEST(Afx, OleExceptionCarriesItsCode) {
    try {
        AfxThrowOleException(0x80070057u);
        FAIL() << "no exception";
    } catch (const COleException& e) {
        EXPECT_EQ(e.m_sc, 0x80070057u);
        EXPECT_STREQ(e.what(), "OLE exception 0x80070057");
    }
    EXPECT_THROW(AfxThrowOleException(0x80004005u), std::exception);
}

TEST(AlignedAlloc, BlocksStartOn32Bytes) {
    for (std::size_t size : {std::size_t(0), std::size_t(1), std::size_t(33), std::size_t(4096)}) {
        void* p = AlignedMalloc(size);
        ASSERT_NE(p, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 32, 0u) << size;
        AlignedFree(p);
    }
    AlignedFree(nullptr);
}
