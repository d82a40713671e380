#include "SessionDescription.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "ReceiverFixture.h"

namespace {

using KorvelVideo::Network::loadSessionDescription;

class SessionDescription : public ReceiverFixture {
protected:
    SessionDescription() {
        std::string name = (std::filesystem::temp_directory_path() / "kvsdp-XXXXXX").string();
        m_directory = mkdtemp(name.data());
    }
    ~SessionDescription() override { std::filesystem::remove_all(m_directory); }

    [[nodiscard]] std::string pathOf(const std::string& name) const { return (m_directory / name).string(); }
    [[nodiscard]] std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(pathOf(name), std::ios::binary) << bytes;
        return pathOf(name);
    }
    static void expectRefused(const std::string& path, const std::string& reason) {
        EXPECT_THROW(static_cast<void>(loadSessionDescription(path.c_str())), CKvVaneException) << path;
        EXPECT_EQ(RecordingLogger::takeLines(),
                  (Lines{{0, 4, "Session description file \"" + path + "\" " + reason + "."}}));
    }

    std::filesystem::path m_directory;
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

TEST_F(SessionDescription, StandsForTheUrlOfAnRtpReceiver) {
    const std::string first = write("first.sdp", "v=0\r\na=rtpmap:96 H264/90000\r\n");
    const std::string second = write("second.sdp", "v=0\na=rtpmap:97 H264/90000\n");
    ASSERT_EQ(create(kRtp, {first.c_str()}), S_OK);
    EXPECT_EQ(receiver->Redirect(second.c_str()), S_OK);
    EXPECT_EQ(redirect(pathOf("missing.sdp").c_str()), KV_E_INVALID_PARAMETER);
    release();
    Calls inits = takeCalls();
    std::erase_if(inits, [](const std::string& call) { return call.find(".Init(") == std::string::npos; });
    EXPECT_EQ(inits, (Calls{"client1.Init(\"v=0\na=rtpmap:96 H264/90000\n\", null)",
                            "client2.Init(\"v=0\na=rtpmap:97 H264/90000\n\", null)"}));
}

} // namespace
