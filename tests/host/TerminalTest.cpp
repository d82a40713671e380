#include "Terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "KvResultCodes.h"
#include "KvVaneException.h"
#include "MemoryStream.h"
#include "PlatformModule.h"

namespace KorvelVideo::Host {

namespace {

TEST(Terminal, LiveLinesStayBelowEverythingElse) {
    MemoryStream output;
    MemoryStream messages;
    Terminal terminal(output.file(), messages.file(), true, 5);
    terminal.show({"one", "a long line"});
    terminal.write("text");
    terminal.show({"two"});
    terminal.makeRoom();
    terminal.makeRoom();
    terminal.show({"three"});
    terminal.complain("wrong");
    EXPECT_EQ(output.text(), "one\na lon\n\x1b[2A\x1b[Jtext\ntwo\n\x1b[1A\x1b[Jthree\n\x1b[1A\x1b[J");
    EXPECT_EQ(messages.text(), "kvreceive: wrong\n");
    MemoryStream file;
    Terminal without(file.file(), messages.file(), false, 5);
    without.show({"a long line"});
    without.makeRoom();
    without.write("text");
    EXPECT_EQ(file.text(), "a long line\ntext\n");
}

TEST(Terminal, SaysWhenItsReaderHasGone) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    std::FILE* output = fdopen(ends[1], "w");
    Terminal terminal(output, stderr, false, 80);
    terminal.write("read");
    EXPECT_TRUE(terminal.isWritable());
    close(ends[0]);
    terminal.write("not read");
    EXPECT_FALSE(terminal.isWritable());
    std::fclose(output);
}

// The module and its host are built apart and share no symbols; what one throws the other must still catch.
TEST(Exception, ThrownInAModuleIsCaughtByItsHost) {
    HMODULE module = LoadLibraryA(KV_THROWING_MODULE);
    ASSERT_NE(module, nullptr);
    const auto throwIt = reinterpret_cast<void (*)()>(GetProcAddress(module, "throwVaneException"));
    HRESULT caught = S_OK;
    try {
        throwIt();
    } catch (const CKvVaneException& exception) {
        caught = exception.m_result;
    }
    EXPECT_EQ(caught, KV_E_INVALID_PROTOCOL);
    FreeLibrary(module);
}

} // namespace

} // namespace KorvelVideo::Host
