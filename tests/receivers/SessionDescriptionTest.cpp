#include "SessionDescription.h"

#include <sys/stat.h>

#include <fstream>

#include "ReceiverFixture.h"
#include "TemporaryRegistry.h"

namespace {

using KorvelVideo::Network::loadSessionDescription;

class SessionDescription : public ReceiverFixture {
protected:
    [[nodiscard]] std::string pathOf(const std::string& name) const {
        return (m_folder.directory() / name).string();
    }
    [[nodiscard]] std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(pathOf(name), std::ios::binary) << bytes;
        return pathOf(name);
    }
    static void expectRefused(const std::string& path, const std::string& reason) {
        EXPECT_THROW(static_cast<void>(loadSessionDescription(path.c_str())), CKvVaneException) << path;
        EXPECT_EQ(RecordingLogger::takeLines(),
                  (Lines{{0, 4, "Session description file \"" + path + "\" " + reason + "."}}));
    }

    const KvTest::TemporaryRegistry m_folder;
};

TEST_F(SessionDescription, IsReadFromAFileWithItsLineEndsTurned) {
    EXPECT_EQ(loadSessionDescription(nullptr), "");
    for (const char* url : {"", "rtp://host:5004", "rtp://host/session.SDP", "rtp://host/sdp", "a\r\nb"}) {
        EXPECT_EQ(loadSessionDescription(url), url);
    }
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"\r\r\n\n\r", "\r\n\n\r"},
        {std::string("a\0\x1A\xFF\r\nb", 7), std::string("a\0\x1A\xFF\nb", 6)},
    };
    for (const auto& [bytes, text] : rows) {
        EXPECT_EQ(loadSessionDescription(write("some.sdp.txt", bytes).c_str()), text);
    }
}

TEST_F(SessionDescription, WhatCannotBeReadIsNamed) {
    const std::string largest(std::size_t{1} << 20, 'x');
    EXPECT_EQ(loadSessionDescription(write("largest.sdp", largest).c_str()), largest);
    expectRefused(write("larger.sdp", largest + "x"), "is larger than 1 MiB");
    expectRefused(pathOf("missing.sdp"), "does not exist");
    expectRefused(write("file", "") + "/below.sdp", "cannot be opened");
    ASSERT_EQ(mkfifo(pathOf("pipe.sdp").c_str(), 0600), 0); // opening it would wait for a writer
    expectRefused(pathOf("pipe.sdp"), "is no regular file");
}

} // namespace
