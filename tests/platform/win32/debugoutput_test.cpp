// Tests of the debug sink: capture, replacement, the FU_DEBUG_SINK descriptions and DebugBreak
// without a debugger.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/win32/debugoutput.h"
#include "testsupport/scratch.h"

TEST(DebugOutput, CaptureNestsAndKeepsEachMessageWhole) {
    platform::DebugOutputCapture capture;
    OutputDebugStringA("first\n");
    OutputDebugStringW(L"second \x00E9");
    OutputDebugStringA(nullptr);  // nothing
    {
        platform::DebugOutputCapture inner;  // captures nest, and restore the outer one
        OutputDebugStringA("inner");
        EXPECT_EQ(inner.Text(), "inner");
    }
    // Messages from many threads are not interleaved.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i) OutputDebugStringA("0123456789");
        });
    }
    for (auto& thread : threads) thread.join();
    auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 802u);
    EXPECT_EQ(messages[0], "first\n");
    EXPECT_EQ(messages[1], "second \xC3\xA9");
    EXPECT_EQ(capture.CountStartingWith("sec"), 1u);
    for (std::size_t i = 2; i < messages.size(); ++i) EXPECT_EQ(messages[i], "0123456789");
}

TEST(DebugOutput, SinkDescriptions) {
    std::string path = (testsupport::ScratchDirectory("debug-output") / "sink.txt").string();
    std::remove(path.c_str());
    auto previous = platform::SetDebugOutputSink(platform::MakeDebugOutputSink("file:" + path));
    OutputDebugStringA("one");
    OutputDebugStringA("two\n");
    platform::SetDebugOutputSink(std::move(previous));
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    EXPECT_EQ(content.str(), "one\ntwo\n");
    std::remove(path.c_str());

    // Unknown and "none" descriptions discard.
    EXPECT_FALSE(platform::MakeDebugOutputSink("none"));
    EXPECT_FALSE(platform::MakeDebugOutputSink("bogus"));
    EXPECT_FALSE(platform::MakeDebugOutputSink("file:"));
    EXPECT_TRUE(platform::MakeDebugOutputSink("stderr"));
}

TEST(DebugOutput, DebugBreakWithoutDebuggerWritesALine) {
    if (IsDebuggerPresent()) GTEST_SKIP() << "running under a debugger";
    platform::DebugOutputCapture capture;
    DebugBreak();
    EXPECT_EQ(capture.CountStartingWith("DebugBreak: no debugger attached"), 1u);
}
