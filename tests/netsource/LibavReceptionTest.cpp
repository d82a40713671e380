// Elementary streams from real senders, by the ways that the end-to-end tests do not take.

#include <future>

#include <gtest/gtest.h>

#include "LibavTestSupport.h"

namespace {

using namespace ClientTest;

void expectAnnounced(const Receiver& receiver, std::uint32_t audioType) {
    ASSERT_EQ(receiver.announcements.size(), 2U);
    EXPECT_EQ(receiver.announcements[0].streamType, keStreamTypeH264);
    auto audio = receiver.announcements[1];
    audio.codecConfig.resize(2); // some senders append what older decoders skip
    EXPECT_EQ(audio, (Receiver::Announcement{audioType, keMediaAudio, 48000, 2, {0x11, 0x90}}));
}

bool waitForUnits(Receiver& receiver, std::size_t count) {
    return waitFor(
        [&] { return receiver.consumer(0).buffers >= count && receiver.consumer(1).buffers >= count; });
}

const std::string kServer = KV_TEST_TOOLS "/rtsp_server.py ";
constexpr const char* kServerPackages = "python3-gi and gir1.2-gst-rtsp-server-1.0";

TEST(LibavRtsp, ReceivesWhatTheServerSends) {
    struct Row {
        const char* path;
        const char* serverOptions; // protocols, user, password
        const char* login;
        std::uint32_t fallback;
        bool choosesPorts, untilTheEnd;
    };
    const Row rows[] = {
        {"/clip", "any", "", 1, true, true},
        {"/clip", "tcp", "", 1, false, false}, // refuses UDP
        {"/clip", "any v s3cret", "v:s3cret@", 0, false, false},
        {"/bare", "any", "", 0, false, false}, // parameter sets in band only
    };
    KV_NEED(!clip().empty(), "ffmpeg with libx264");
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.path) + " " + row.serverOptions);
        const std::string port = std::to_string(freePorts());
        const ChildProcess server(kServer + port + " " + clip() + " " + row.serverOptions);
        KV_NEED(server.waitForLine(), kServerPackages);
        Receiver receiver;
        ASSERT_EQ(receiver.init(std::string("rtsp://") + row.login + "127.0.0.1:" + port + row.path),
                  keClientOk);
        expectAnnounced(receiver, keStreamTypeAac);
        const std::uint16_t localPort = row.choosesPorts ? freePorts() : 0;
        receiver.client->SetParameter(keParameterInterleavedFallback, &row.fallback, sizeof(row.fallback));
        receiver.client->SetParameter(keParameterLocalPort, &localPort, sizeof(localPort));
        ASSERT_EQ(receiver.play(), keClientOk);
        ASSERT_TRUE(waitForUnits(receiver, 1));
        for (int offset = 0; row.choosesPorts && offset < 4; ++offset) {
            EXPECT_TRUE(portIsTaken("udp", localPort + offset));
        }
        if (row.untilTheEnd) {
            ASSERT_TRUE(waitFor([&] { return receiver.wasTold(keNotifyEndOfStream); }));
            EXPECT_EQ(receiver.consumer(0).payloads().size(), 150U) << "6 s of 25 pictures";
        }
    }
}

TEST(LibavRtsp, TakesTcpOnlyWhenAllowedAndNothingArrivesOverUdp) {
    KV_NEED(!clip().empty(), "ffmpeg with libx264");
    const std::uint16_t port = freePorts();
    const ChildProcess server(kServer + std::to_string(port) + " " + clip() + " blocked");
    KV_NEED(server.waitForLine(), kServerPackages);
    std::array<Receiver, 2> receivers; // the second one may fall back
    const auto start = std::chrono::steady_clock::now();
    for (const std::uint32_t mayFallBack : {0U, 1U}) {
        Receiver& receiver = receivers.at(mayFallBack);
        ASSERT_EQ(receiver.init(loopbackUrl("rtsp", port, "/clip")), keClientOk);
        receiver.client->SetParameter(keParameterInterleavedFallback, &mayFallBack, sizeof(mayFallBack));
        ASSERT_EQ(receiver.play(), keClientOk);
    }
    ASSERT_TRUE(waitForUnits(receivers[1], 1));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(receivers[0].consumer(0).size + receivers[0].consumer(1).size, 0U);
}

TEST(LibavDescription, ReceivesLoasInTransportStreamInRtp) {
    KV_NEED(!clip().empty(), "ffmpeg with libx264");
    const std::string port = std::to_string(freePorts());
    Receiver receiver;
    std::future<std::uint32_t> opened = std::async(std::launch::async, [&] {
        return receiver.init(description("m=video " + port + " RTP/AVP 33\r\n"));
    });
    // This sender gives up when nobody listens.
    ASSERT_TRUE(waitFor([&port] { return portIsTaken("udp", std::stoi(port)); }));
    const ChildProcess sender("ffmpeg -re -stream_loop -1 -i " + clip() +
                              " -c copy -f rtp_mpegts -mpegts_muxer_options "
                              "mpegts_flags=latm rtp://127.0.0.1:" +
                              port);
    ASSERT_EQ(opened.get(), keClientOk);
    expectAnnounced(receiver, keStreamTypeLatm);
    ASSERT_EQ(receiver.play(), keClientOk);
    ASSERT_TRUE(waitForUnits(receiver, 60));
    receiver.stop();
    for (const Octets& frame : receiver.consumer(1).payloads()) {
        ASSERT_EQ(frame[0], 0x56);
        EXPECT_EQ(frame[3] & 0x80, 0) << "the frame relies on an earlier configuration";
    }
}

} // namespace
