// The source behind the SDK's entry points, driven as the module drives it.

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "LibavTestSupport.h"

namespace KorvelVideo::NetworkSource::test {
namespace {

using namespace MainConcept::NetworkStreaming;
using namespace std::chrono_literals;

TEST(LibavClientTest, AnRtspSessionFromInitToTheEndOfTheStream) {
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freeTcpPort();
    ChildProcess server({kRtspServer, std::to_string(port), sent->file});
    KV_NEED(server.waitForOutput("ready", 10s), "python3-gi and gir1.2-gst-rtsp-server-1.0");

    ClientTest::Receiver receiver;
    ASSERT_EQ(std::uint32_t{keClientOk}, receiver.init(loopbackUrl("rtsp", port, "/clip")));
    const std::uint32_t fallback = 1;
    const std::uint16_t localPort = freeUdpPorts(4);
    EXPECT_EQ(std::uint32_t{keClientOk},
              receiver.client->SetParameter(keParameterInterleavedFallback, &fallback, sizeof(fallback)));
    EXPECT_EQ(std::uint32_t{keClientOk},
              receiver.client->SetParameter(keParameterLocalPort, &localPort, sizeof(localPort)));
    ASSERT_EQ(std::uint32_t{keClientOk}, receiver.play());
    ASSERT_TRUE(ClientTest::waitFor([&] { return receiver.consumer().size() > 0; }));
    EXPECT_FALSE(udpPortIsFree(localPort));
    const auto hasEnded = [&] {
        const std::vector<int> told = receiver.consumer().notifications();
        return !told.empty() && told.back() == keNotifyEndOfStream;
    };
    ASSERT_TRUE(ClientTest::waitFor(hasEnded));

    ASSERT_EQ(2U, receiver.creator.announcements.size());
    EXPECT_EQ(sent->parameterSets, receiver.creator.announcements[0].codecConfig);
    EXPECT_EQ(keNotifyActivity, receiver.consumer().notifications().front());
    EXPECT_EQ(0, receiver.consumer().lent());
    EXPECT_EQ(sent->pictures, slices({{0, receiver.consumer(0).data()}}));
    ByteVector audio;
    for (const ByteVector& frame : sent->audioFrames) {
        audio.insert(audio.end(), frame.begin(), frame.end());
    }
    const ClientTest::Bytes received = receiver.consumer(1).data();
    ASSERT_LE(received.size(), audio.size());
    EXPECT_TRUE(std::equal(received.begin(), received.end(), audio.begin()));
    EXPECT_EQ(std::uint32_t{keClientOk}, receiver.stop());
}

} // namespace
} // namespace KorvelVideo::NetworkSource::test
