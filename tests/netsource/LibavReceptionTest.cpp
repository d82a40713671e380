// Elementary streams from real senders equal what was sent.

#include <algorithm>
#include <array>
#include <fstream>
#include <regex>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "AvcFraming.h"
#include "LibavTestSupport.h"

namespace {

using namespace ClientTest;
std::size_t indexOf(const Receiver& receiver, std::uint32_t type) {
    const auto& all = receiver.creator.announcements;
    const auto found =
        std::find_if(all.begin(), all.end(), [type](const auto& a) { return a.streamType == type; });
    EXPECT_NE(found, all.end()) << "no stream of type " << type;
    return found == all.end() ? 0 : static_cast<std::size_t>(found - all.begin());
}

void expectAnnounced(const Receiver& receiver, const Clip& clip, std::uint32_t audioType = keStreamTypeAac) {
    ASSERT_EQ(receiver.creator.announcements.size(), 2U);
    const auto& video = receiver.creator.announcements[indexOf(receiver, keStreamTypeH264)];
    EXPECT_EQ(video, (RecordingCreator::Announcement{96, keMediaVideo, 0, 0, clip.parameterSets}));
    auto audio = receiver.creator.announcements[indexOf(receiver, audioType)];
    audio.codecConfig.resize(clip.audioConfig.size()); // some senders append what older decoders skip
    EXPECT_EQ(audio, (RecordingCreator::Announcement{audioType, keMediaAudio, 48000, 2, clip.audioConfig}));
}

// Every IDR picture comes with its parameter sets before it, behind 4-byte start codes.
void expectDecodableAnywhere(const RecordingConsumer::Unit& unit) {
    std::vector<Bytes> nals;
    splitNalUnits(unit.bytes, 0, nals);
    std::size_t length = 0;
    unsigned types = 0; // a bit each
    for (const auto nal : nals) {
        length += 4 + nal.size();
        types |= 1U << nalUnitType(nal);
        EXPECT_TRUE(nalUnitType(nal) != 5 || (types & 0x180) == 0x180);
    }
    EXPECT_EQ(length, unit.bytes.size()) << "a start code is not 4 bytes long";
}

// All of the clip's frames came but a few at the end that senders keep; or a run of them.
enum class Extent { whole, runInside };

void expectFrames(const std::vector<Octets>& sent, const std::vector<Octets>& received, Extent extent,
                  std::size_t kept) {
    ASSERT_LE(received.size(), sent.size());
    if (extent == Extent::whole) {
        EXPECT_GE(received.size() + kept, sent.size());
        EXPECT_TRUE(std::equal(received.begin(), received.end(), sent.begin()));
    } else { // the first and the last one may be cut by the moment of starting and stopping
        ASSERT_GT(received.size(), 2U);
        EXPECT_NE(std::search(sent.begin(), sent.end(), received.begin() + 1, received.end() - 1),
                  sent.end());
    }
}

void expectClip(Receiver& receiver, const Clip& clip, Extent extent = Extent::whole) {
    const auto rising = [](const auto& a, const auto& b) { return a.timeStamp < b.timeStamp; };
    const RecordingConsumer& video = receiver.consumer(indexOf(receiver, keStreamTypeH264));
    const auto units = video.units();
    EXPECT_TRUE(std::is_sorted(units.begin(), units.end(), rising));
    std::for_each(units.begin(), units.end(), expectDecodableAnywhere);
    expectFrames(clip.pictures, slices(video.data()), extent, 0);
    expectFrames(clip.audioFrames, receiver.consumer(indexOf(receiver, keStreamTypeAac)).payloads(), extent,
                 2);
    EXPECT_EQ(video.lent(), 0);
}

bool waitForEnd(Receiver& receiver) {
    return waitFor([&] { return receiver.wasTold(keNotifyEndOfStream); });
}

bool waitForUnits(Receiver& receiver, std::uint32_t type, std::size_t count) {
    const RecordingConsumer& consumer = receiver.consumer(indexOf(receiver, type));
    return waitFor([&] { return consumer.buffers() >= count; });
}

const std::string kServer = KV_TEST_TOOLS "/rtsp_server.py ";
constexpr const char* kServerPackages = "python3-gi and gir1.2-gst-rtsp-server-1.0";

struct RtspCase {
    const char* name;
    const char* path;
    const char* serverOptions; // protocols, user, password
    const char* login;
    std::uint32_t fallback;
    bool choosesPorts;
};

void PrintTo(const RtspCase& row, std::ostream* stream) { *stream << row.name; }

class LibavRtsp : public testing::TestWithParam<RtspCase> {};

TEST_P(LibavRtsp, ReceivesWhatTheServerSends) {
    const RtspCase& row = GetParam();
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freePorts();
    const ChildProcess server(kServer + std::to_string(port) + " " + sent->file + " " + row.serverOptions);
    KV_NEED(server.waitForLine(), kServerPackages);
    Receiver receiver;
    ASSERT_EQ(
        receiver.init("rtsp://" + std::string(row.login) + "127.0.0.1:" + std::to_string(port) + row.path),
        keClientOk);
    expectAnnounced(receiver, *sent);
    EXPECT_EQ(receiver.set(keParameterInterleavedFallback, row.fallback), keClientOk);
    const std::uint16_t localPort = freePorts();
    EXPECT_EQ(receiver.set(keParameterLocalPort, row.choosesPorts ? localPort : std::uint16_t{0}),
              keClientOk);
    ASSERT_EQ(receiver.play(), keClientOk);
    if (row.choosesPorts) {
        ASSERT_TRUE(waitForUnits(receiver, keStreamTypeH264, 1));
        for (const int offset : {0, 1, 2, 3}) {
            EXPECT_TRUE(portIsTaken("udp", localPort + offset));
        }
    }
    ASSERT_TRUE(waitForEnd(receiver));
    EXPECT_EQ(receiver.consumer().notifications().front(), keNotifyActivity);
    expectClip(receiver, *sent);
}

INSTANTIATE_TEST_SUITE_P(Servers, LibavRtsp,
                         testing::Values(RtspCase{"UdpOnChosenPorts", "/clip", "any", "", 1, true},
                                         RtspCase{"UdpRefusedFallsBackToTcp", "/clip", "tcp", "", 1, false},
                                         RtspCase{"Digest", "/clip", "any v s3cret", "v:s3cret@", 0, false},
                                         RtspCase{"ParameterSetsInBandOnly", "/bare", "any", "", 0, false}),
                         [](const auto& test) { return std::string(test.param.name); });

// Passes on what both sides send until one closes, but gives the server ports of the client's that nobody
// listens on, as a firewall would have it.
void relayWithoutUdp(int client, std::uint16_t port) {
    const int server = connectTo(port);
    std::array<pollfd, 2> sides{{{client, POLLIN, 0}, {server, POLLIN, 0}}};
    std::vector<char> buffer(65536);
    for (bool open = true; open && poll(sides.data(), sides.size(), 30'000) > 0;) {
        for (const std::size_t from : {0U, 1U}) {
            if (open && sides.at(from).revents != 0) {
                const ssize_t count = recv(sides.at(from).fd, buffer.data(), buffer.size(), 0);
                const std::string text(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
                const std::regex ports("client_port=[0-9]+-[0-9]+");
                open =
                    count > 0 &&
                    sendText(sides.at(1 - from).fd,
                             from == 0 ? std::regex_replace(text, ports, "client_port=64998-64999") : text);
            }
        }
    }
    close(server);
}

TEST(LibavRtspFallback, TakesTcpOnlyWhenAllowedAndNothingArrivesOverUdp) {
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freePorts();
    const ChildProcess server(kServer + std::to_string(port) + " " + sent->file);
    KV_NEED(server.waitForLine(), kServerPackages);
    const ScriptedServer firewall([port](int client) { relayWithoutUdp(client, port); });
    std::array<Receiver, 2> receivers; // the second one may fall back
    for (Receiver& receiver : receivers) {
        ASSERT_EQ(receiver.init(loopbackUrl("rtsp", firewall.port(), "/clip")), keClientOk);
    }
    const std::uint32_t yes = 1;
    ASSERT_EQ(receivers[1].set(keParameterInterleavedFallback, yes), keClientOk);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(receivers[0].play(), keClientOk);
    ASSERT_EQ(receivers[1].play(), keClientOk);
    ASSERT_TRUE(waitForUnits(receivers[1], keStreamTypeH264, 1));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    ASSERT_TRUE(waitForEnd(receivers[1]));
    expectAnnounced(receivers[1], *sent);
    expectClip(receivers[1], *sent);
    EXPECT_EQ(receivers[0].consumer().size() + receivers[0].consumer(1).size(), 0U);
}

TEST(LibavRtmp, ReceivesWhatNginxRelays) {
    const std::string module = "/usr/lib/nginx/modules/ngx_rtmp_module.so";
    const Clip* const sent = clip(2, 12); // decoding and presentation times differ
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    KV_NEED(access("/usr/sbin/nginx", X_OK) == 0 && std::ifstream(module).good(),
            "nginx with libnginx-mod-rtmp");
    const std::uint16_t port = freePorts();
    const std::string log = temporaryFile("nginx.log");
    std::ofstream(temporaryFile("nginx.conf"))
        << "load_module " << module << "; worker_processes 1; daemon off; master_process off; error_log "
        << log << "; pid " << temporaryFile("nginx.pid")
        << "; events {} rtmp { server { listen 127.0.0.1:" << port << "; application live { live on; } } }\n";
    const ChildProcess server("/usr/sbin/nginx -c " + temporaryFile("nginx.conf") + " -e " + log);
    ASSERT_TRUE(waitFor([port] { return portIsTaken("tcp", port); }));
    const std::string url = loopbackUrl("rtmp", port, "/live/clip");
    const ChildProcess sender("ffmpeg -re -i " + sent->file + " -c copy -f flv " + url);
    Receiver receiver;
    ASSERT_EQ(receiver.init(url), keClientOk);
    expectAnnounced(receiver, *sent);
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // the host takes its time and loses nothing
    ASSERT_EQ(receiver.play(), keClientOk);
    ASSERT_TRUE(waitForUnits(receiver, keStreamTypeH264, 60));
    receiver.stop();
    expectClip(receiver, *sent, Extent::runInside);
}

TEST(LibavDescription, FindsParameterSetsInWhatGStreamerSends) {
    const Clip* const sent = clip(0, 12); // long enough for a slow machine
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    KV_NEED(ChildProcess("gst-launch-1.0 --version").succeeds(), "gstreamer1.0-tools");
    const std::uint16_t port = freePorts();
    const std::string video = std::to_string(port);
    const std::string audio = std::to_string(port + 2);
    const ChildProcess sender(
        "gst-launch-1.0 -q filesrc location=" + sent->file +
        " ! matroskademux name=d d. ! queue ! h264parse ! rtph264pay pt=96 config-interval=-1 ! "
        "udpsink host=127.0.0.1 port=" +
        video +
        " d. ! queue ! aacparse ! rtpmp4gpay pt=97 ! "
        "udpsink host=127.0.0.1 port=" +
        audio);
    Receiver receiver;
    ASSERT_EQ(
        receiver.init(description(
            "m=video " + video + " RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\nm=audio " + audio +
            " RTP/AVP 97\r\na=rtpmap:97 MPEG4-GENERIC/48000/2\r\na=fmtp:97 streamtype=5;profile-level-id=2;"
            "mode=AAC-hbr;config=1190;sizelength=13;indexlength=3;indexdeltalength=3\r\n")),
        keClientOk);
    expectAnnounced(receiver, *sent);
    ASSERT_EQ(receiver.play(), keClientOk);
    ASSERT_TRUE(waitForUnits(receiver, keStreamTypeH264, 15));
    receiver.stop();
    expectClip(receiver, *sent, Extent::runInside);
}

// Whether the frame lies in the unit at any bit.
bool contains(const Octets& unit, const Octets& frame) {
    for (unsigned shift = 0; shift < 8; ++shift) {
        Octets bytes;
        for (std::size_t i = 0; i + 1 < unit.size(); ++i) {
            bytes.push_back(static_cast<std::uint8_t>((unit[i] << 8 | unit[i + 1]) >> (8 - shift)));
        }
        if (std::search(bytes.begin(), bytes.end(), frame.begin(), frame.end()) != bytes.end()) {
            return true;
        }
    }
    return false;
}

TEST(LibavDescription, ReceivesLoasInTransportStreamInRtp) {
    const Clip* const sent = clip(0, 12);
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freePorts();
    Receiver receiver;
    const auto open = [&] {
        return receiver.init(description("m=video " + std::to_string(port) + " RTP/AVP 33\r\n"));
    };
    std::future<std::uint32_t> opened = std::async(std::launch::async, open);
    // This sender gives up when nobody listens.
    ASSERT_TRUE(waitFor([port] { return portIsTaken("udp", port); }));
    const ChildProcess sender(
        "ffmpeg -re -i " + sent->file +
        " -c copy -f rtp_mpegts -mpegts_muxer_options mpegts_flags=latm rtp://127.0.0.1:" +
        std::to_string(port));
    ASSERT_EQ(opened.get(), keClientOk);
    expectAnnounced(receiver, *sent, keStreamTypeLatm);
    ASSERT_EQ(receiver.play(), keClientOk);
    ASSERT_TRUE(waitForUnits(receiver, keStreamTypeLatm, 60));
    receiver.stop();
    expectFrames(sent->pictures, slices(receiver.consumer(indexOf(receiver, keStreamTypeH264)).data()),
                 Extent::runInside, 0);
    const auto units = receiver.consumer(indexOf(receiver, keStreamTypeLatm)).units();
    const std::vector<Octets>& frames = sent->audioFrames;
    std::size_t next = 0;
    while (next < frames.size() && !contains(units[0].bytes, frames[next])) {
        ++next;
    }
    for (std::size_t i = 0; i < units.size(); ++i) {
        ASSERT_EQ(units[i].bytes[0], 0x56);
        EXPECT_EQ(units[i].bytes[3] & 0x80, 0) << "the frame relies on an earlier configuration";
        ASSERT_TRUE(contains(units[i].bytes, frames.at(next + i))) << "frame " << i;
        EXPECT_TRUE(i == 0 || units[i - 1].timeStamp < units[i].timeStamp);
    }
}

} // namespace
