#include "Terminal.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "MemoryStream.h"

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
    EXPECT_EQ(output.text(), "one\na lon\n"
                             "\x1b[2A\x1b[Jtext\ntwo\n"
                             "\x1b[1A\x1b[Jthree\n"
                             "\x1b[1A\x1b[J");
    EXPECT_EQ(messages.text(), "kvreceive: wrong\n");
}

TEST(Terminal, WithoutLiveLinesTheyAreWrittenWhole) {
    MemoryStream output;
    MemoryStream messages;
    Terminal terminal(output.file(), messages.file(), false, 5);
    terminal.show({"a long line"});
    terminal.makeRoom();
    terminal.write("text");
    EXPECT_EQ(output.text(), "a long line\ntext\n");
}

TEST(Terminal, SaysWhenItsReaderHasGone) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    std::FILE* output = fdopen(ends[1], "w");
    MemoryStream messages;
    Terminal terminal(output, messages.file(), false, 80);
    terminal.write("read");
    EXPECT_TRUE(terminal.isWritable());
    close(ends[0]);
    terminal.write("not read");
    EXPECT_FALSE(terminal.isWritable());
    std::fclose(output);
}

} // namespace

} // namespace KorvelVideo::Host
