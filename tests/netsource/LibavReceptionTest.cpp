// Elementary streams from real senders equal what was sent.

#include <algorithm>
#include <fstream>
#include <future>
#include <regex>
#include <unistd.h>

#include <gtest/gtest.h>

#include "AvcFraming.h"
#include "LibavSource.h"
#include "LibavTestSupport.h"

namespace KorvelVideo::NetworkSource::test {
namespace {

using namespace MainConcept::NetworkStreaming;
using namespace std::chrono_literals;

std::ptrdiff_t streamOfType(const Source& source, std::uint32_t type) {
    for (std::size_t i = 0; i < source.streams().size(); ++i) {
        if (source.streams()[i].streamType == type) {
            return static_cast<std::ptrdiff_t>(i);
        }
    }
    return -1;
}

void expectAnnounced(const Source& source, const Clip& clip) {
    ASSERT_EQ(2U, source.streams().size());
    const ElementaryStream& video = source.streams().at(static_cast<std::size_t>(streamOfType(source, 96)));
    const ElementaryStream& audio = source.streams().at(static_cast<std::size_t>(streamOfType(source, 99)));
    EXPECT_EQ(std::uint32_t{keMediaVideo}, video.mediaKind);
    EXPECT_EQ(clip.parameterSets, video.codecConfig);
    EXPECT_EQ(std::uint32_t{keMediaAudio}, audio.mediaKind);
    EXPECT_EQ(48000U, audio.audioSamplingRate);
    EXPECT_EQ(2U, audio.audioChannels);
    // Some senders append what older decoders skip.
    ASSERT_LE(clip.audioConfig.size(), audio.codecConfig.size());
    EXPECT_TRUE(std::equal(clip.audioConfig.begin(), clip.audioConfig.end(), audio.codecConfig.begin()));
}

void expectRising(const std::vector<RecordingSink::Unit>& units) {
    for (std::size_t i = 1; i < units.size(); ++i) {
        ASSERT_LT(units[i - 1].timeStamp, units[i].timeStamp) << "access unit " << i;
    }
}

// Every IDR picture comes with its parameter sets before it, behind 4-byte start codes.
void expectDecodableAnywhere(const std::vector<RecordingSink::Unit>& units) {
    for (const RecordingSink::Unit& unit : units) {
        std::vector<Bytes> nals;
        splitNalUnits(unit.bytes, 0, nals);
        std::size_t length = 0;
        bool sequence = false;
        bool picture = false;
        for (const Bytes nal : nals) {
            length += 4 + nal.size();
            sequence = sequence || nalUnitType(nal) == keNalSequenceParameterSet;
            picture = picture || nalUnitType(nal) == keNalPictureParameterSet;
            if (nalUnitType(nal) == keNalIdrSlice) {
                EXPECT_TRUE(sequence && picture);
            }
        }
        EXPECT_EQ(length, unit.bytes.size()) << "a start code is not 4 bytes long";
    }
}

std::vector<ByteVector> repeated(const std::vector<ByteVector>& frames, unsigned times) {
    std::vector<ByteVector> all;
    for (unsigned i = 0; i < times; ++i) {
        all.insert(all.end(), frames.begin(), frames.end());
    }
    return all;
}

enum class Extent { whole, runInside };

// `received` is what was sent, but for a few frames at the end that the sender kept; or a run of it, for
// senders that had begun before.
void expectFrames(const std::vector<ByteVector>& sent, const std::vector<ByteVector>& received, Extent extent,
                  std::size_t keptAtEnd) {
    ASSERT_FALSE(received.empty());
    ASSERT_LE(received.size(), sent.size());
    if (extent == Extent::whole) {
        EXPECT_GE(received.size() + keptAtEnd, sent.size());
        EXPECT_TRUE(std::equal(received.begin(), received.end(), sent.begin()));
    } else {
        // The first and the last one may be cut by the moment of starting and stopping.
        ASSERT_GT(received.size(), 2U);
        EXPECT_NE(sent.end(),
                  std::search(sent.begin(), sent.end(), received.begin() + 1, received.end() - 1));
    }
}

void expectClip(const Receiver& receiver, const Clip& clip, Extent extent = Extent::whole,
                unsigned times = 1) {
    const auto video = receiver.sink->units(static_cast<std::size_t>(streamOfType(*receiver.source, 96)));
    const auto audio = receiver.sink->units(static_cast<std::size_t>(streamOfType(*receiver.source, 99)));
    EXPECT_EQ(0U, receiver.sink->lentBuffers());
    expectRising(video);
    expectRising(audio);
    expectDecodableAnywhere(video);
    expectFrames(repeated(clip.pictures, times), slices(video), extent, 0);
    expectFrames(repeated(clip.audioFrames, times), payloads(audio), extent, 2);
}

struct RtspCase {
    const char* name;
    const char* path;
    const char* serverProtocols;
    const char* user; // null: no authentication
    bool fallback;
    bool localPort;
};

class LibavRtspServerTest : public testing::TestWithParam<RtspCase> {};

TEST_P(LibavRtspServerTest, ReceivesWhatTheServerSends) {
    const RtspCase& row = GetParam();
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freeTcpPort();
    std::vector<std::string> command{kRtspServer, std::to_string(port), sent->file, row.serverProtocols};
    if (row.user != nullptr) {
        command.insert(command.end(), {row.user, "s3cret"});
    }
    ChildProcess server(command);
    KV_NEED(server.waitForOutput("ready", 10s), "python3-gi and gir1.2-gst-rtsp-server-1.0");

    const std::string login = row.user != nullptr ? std::string(row.user) + ":s3cret@" : "";
    Receiver receiver("rtsp://" + login + "127.0.0.1:" + std::to_string(port) + row.path);
    ASSERT_EQ(keClientOk, receiver.open());
    expectAnnounced(*receiver.source, *sent);
    receiver.parameters.interleavedFallback = row.fallback;
    receiver.parameters.localPort = row.localPort ? freeUdpPorts(4) : std::uint16_t{0};
    ASSERT_EQ(keClientOk, receiver.start());
    if (row.localPort) {
        ASSERT_TRUE(receiver.sink->waitForUnits(0, 1, 5s));
        for (std::uint16_t i = 0; i < 4; ++i) {
            EXPECT_FALSE(udpPortIsFree(static_cast<std::uint16_t>(receiver.parameters.localPort + i)));
        }
    }
    ASSERT_TRUE(receiver.sink->waitForEnd(10s));
    EXPECT_EQ(SourceEnd::endOfStream, receiver.sink->ended());
    expectClip(receiver, *sent);
}

INSTANTIATE_TEST_SUITE_P(
    Servers, LibavRtspServerTest,
    testing::Values(RtspCase{"Udp", "/clip", "any", nullptr, false, false},
                    RtspCase{"UdpOnChosenPorts", "/clip", "any", nullptr, true, true},
                    RtspCase{"UdpRefusedFallsBackToTcp", "/clip", "tcp", nullptr, true, false},
                    RtspCase{"DigestAuthentication", "/clip", "any", "viewer", true, false},
                    RtspCase{"ParameterSetsInBandOnly", "/bare", "any", nullptr, true, false}),
    [](const auto& row) { return row.param.name; });

// Passes RTSP on to the server on `port`, but gives it ports of the client's that nobody listens on, as a
// firewall would have it.
ScriptedServer::Script relayWithoutUdp(std::uint16_t port) {
    return [port](int client) {
        const int server = connectTo(port);
        const auto rewrite = [](const std::string& text) {
            // Of the same length, so that the request stays whole.
            const std::string pass = std::regex_replace(text, std::regex("client_port=[0-9]{5}-[0-9]{5}"),
                                                        "client_port=64998-64999");
            return std::regex_replace(pass, std::regex("client_port=[0-9]{4}-[0-9]{4}\\b"),
                                      "client_port=6498-6499");
        };
        relay(client, server, rewrite);
        close(server);
    };
}

TEST(LibavRtspTest, FallsBackToTcpWhenNothingArrivesOverUdp) {
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freeTcpPort();
    ChildProcess server({kRtspServer, std::to_string(port), sent->file});
    KV_NEED(server.waitForOutput("ready", 10s), "python3-gi and gir1.2-gst-rtsp-server-1.0");
    const ScriptedServer firewall(relayWithoutUdp(port));
    for (const bool mayFallBack : {false, true}) {
        Receiver receiver(loopbackUrl("rtsp", firewall.port(), "/clip"));
        ASSERT_EQ(keClientOk, receiver.open());
        const std::vector<ElementaryStream> announced = receiver.source->streams();
        receiver.parameters.interleavedFallback = mayFallBack;
        const auto start = Clock::now();
        ASSERT_EQ(keClientOk, receiver.start());
        EXPECT_EQ(mayFallBack, receiver.sink->waitForUnits(0, 1, 4500ms));
        if (mayFallBack) {
            EXPECT_GE(Clock::now() - start, 3s);
            ASSERT_TRUE(receiver.sink->waitForEnd(10s));
            EXPECT_EQ(announced.size(), receiver.source->streams().size());
            expectClip(receiver, *sent);
        }
    }
}

TEST(LibavRtmpTest, ReceivesWhatFfmpegServesFromTheStart) {
    // With B pictures, so that decoding and presentation times differ.
    const Clip* const sent = clip("-bf 2");
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freeTcpPort();
    const std::string url = loopbackUrl("rtmp", port, "/live/clip");
    const ChildProcess server(
        {"ffmpeg", "-re", "-i", sent->file, "-c", "copy", "-f", "flv", "-listen", "1", url});
    Receiver receiver(url);
    ClientStatus status = keClientConnectionRefused;
    for (int attempt = 0; attempt < 100 && status == keClientConnectionRefused; ++attempt) {
        std::this_thread::sleep_for(50ms); // this server takes one connection only, so none is spent to ask
        receiver.source = makeLibavSource(url);
        status = receiver.open();
    }
    ASSERT_EQ(keClientOk, status);
    expectAnnounced(*receiver.source, *sent);
    // The host takes its time; nothing is lost by that.
    std::this_thread::sleep_for(1s);
    ASSERT_EQ(keClientOk, receiver.start());
    ASSERT_TRUE(receiver.sink->waitForEnd(10s));
    expectClip(receiver, *sent);
}

TEST(LibavRtmpTest, ReceivesWhatNginxRelays) {
    const std::string module = "/usr/lib/nginx/modules/ngx_rtmp_module.so";
    const Clip* const sent = clip("-bf 2");
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    KV_NEED(programExists("/usr/sbin/nginx") && std::ifstream(module).good(), "nginx with libnginx-mod-rtmp");
    const TemporaryDirectory directory;
    const std::uint16_t port = freeTcpPort();
    writeFile(directory.path("nginx.conf"),
              "load_module " + module +
                  ";\nworker_processes 1;\ndaemon off;\nmaster_process off;\nerror_log " +
                  directory.path("log") + ";\npid " + directory.path("pid") +
                  ";\nevents {}\nrtmp { server { listen 127.0.0.1:" + std::to_string(port) +
                  "; application live { live on; } } }\n");
    const ChildProcess server(
        {"/usr/sbin/nginx", "-c", directory.path("nginx.conf"), "-e", directory.path("log")});
    ASSERT_TRUE(waitForTcpPort(port, 10s));
    const std::string url = loopbackUrl("rtmp", port, "/live/clip");
    const ChildProcess sender(
        {"ffmpeg", "-re", "-stream_loop", "1", "-i", sent->file, "-c", "copy", "-f", "flv", url});

    Receiver receiver(url);
    ASSERT_EQ(keClientOk, receiver.open());
    expectAnnounced(*receiver.source, *sent);
    ASSERT_EQ(keClientOk, receiver.start());
    ASSERT_TRUE(receiver.sink->waitForUnits(0, 60, 10s));
    receiver.source->stop();
    expectClip(receiver, *sent, Extent::runInside, 2);
}

std::vector<std::string> rtpSender(const Clip& clip, std::uint16_t port, const std::string& descriptionFile,
                                   std::vector<std::string> inputOptions) {
    std::vector<std::string> command{"ffmpeg", "-loglevel", "error", "-re"};
    command.insert(command.end(), inputOptions.begin(), inputOptions.end());
    const auto target = [](unsigned at) { return "rtp://127.0.0.1:" + std::to_string(at); };
    command.insert(command.end(), {"-i",         clip.file,      "-map",      "0:v",       "-c",
                                   "copy",       "-f",           "rtp",       "-rtpflags", "send_bye",
                                   target(port), "-map",         "0:a",       "-c",        "copy",
                                   "-f",         "rtp",          "-rtpflags", "send_bye",  target(port + 2U),
                                   "-sdp_file",  descriptionFile});
    return command;
}

TEST(LibavDescriptionTest, ReceivesWhatFfmpegSends) {
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const TemporaryDirectory directory;
    const std::string file = directory.path("clip.sdp");
    const std::uint16_t port = freeUdpPorts(4);
    ASSERT_EQ(0, ChildProcess(rtpSender(*sent, port, file, {"-t", "0.1"})).waitForExit(10s));
    const ByteVector text = readFile(file);

    Receiver receiver(std::string(text.begin(), text.end()));
    ASSERT_EQ(keClientOk, receiver.open());
    expectAnnounced(*receiver.source, *sent);
    ASSERT_EQ(keClientOk, receiver.start());
    std::this_thread::sleep_for(300ms); // nothing tells when the sockets are open
    const ChildProcess sender(rtpSender(*sent, port, file, {}));
    ASSERT_TRUE(receiver.sink->waitForEnd(10s));
    EXPECT_EQ(SourceEnd::endOfStream, receiver.sink->ended());
    expectClip(receiver, *sent);
}

TEST(LibavDescriptionTest, FindsParameterSetsInWhatGStreamerSends) {
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    KV_NEED(programExists("gst-launch-1.0"), "gstreamer1.0-tools");
    const std::uint16_t port = freeUdpPorts(4);
    const std::string video = std::to_string(port);
    const std::string audio = std::to_string(port + 2U);
    const ChildProcess sender({"gst-launch-1.0",
                               "-q",
                               "filesrc",
                               "location=" + sent->file,
                               "!",
                               "matroskademux",
                               "name=d",
                               "d.",
                               "!",
                               "queue",
                               "!",
                               "h264parse",
                               "!",
                               "rtph264pay",
                               "pt=96",
                               "config-interval=-1",
                               "!",
                               "udpsink",
                               "host=127.0.0.1",
                               "port=" + video,
                               "d.",
                               "!",
                               "queue",
                               "!",
                               "aacparse",
                               "!",
                               "rtpmp4gpay",
                               "pt=97",
                               "!",
                               "udpsink",
                               "host=127.0.0.1",
                               "port=" + audio});
    Receiver receiver(description(
        "m=video " + video + " RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\nm=audio " + audio +
        " RTP/AVP 97\r\na=rtpmap:97 MPEG4-GENERIC/48000/2\r\na=fmtp:97 streamtype=5;profile-level-id=2;"
        "mode=AAC-hbr;config=1190;sizelength=13;indexlength=3;indexdeltalength=3\r\n"));
    ASSERT_EQ(keClientOk, receiver.open());
    expectAnnounced(*receiver.source, *sent);
    ASSERT_EQ(keClientOk, receiver.start());
    ASSERT_TRUE(receiver.sink->waitForUnits(0, 25, 10s));
    receiver.source->stop();
    expectClip(receiver, *sent, Extent::runInside);
}

// The bytes from bit `shift` on.
ByteVector shifted(const ByteVector& bytes, unsigned shift) {
    ByteVector result;
    for (std::size_t i = 0; i + 1 < bytes.size(); ++i) {
        result.push_back(static_cast<std::uint8_t>((bytes[i] << 8 | bytes[i + 1]) >> (8 - shift)));
    }
    return result;
}

bool contains(const ByteVector& unit, const ByteVector& frame) {
    for (unsigned shift = 0; shift < 8; ++shift) {
        const ByteVector bytes = shifted(unit, shift);
        if (std::search(bytes.begin(), bytes.end(), frame.begin(), frame.end()) != bytes.end()) {
            return true;
        }
    }
    return false;
}

TEST(LibavDescriptionTest, ReceivesLoasInTransportStreamInRtp) {
    const Clip* const sent = clip();
    KV_NEED(sent != nullptr, "ffmpeg with libx264");
    const std::uint16_t port = freeUdpPorts(2);
    Receiver receiver(description("m=video " + std::to_string(port) + " RTP/AVP 33\r\n"));
    // This sender gives up when nobody listens, so it starts after the opening has.
    std::future<ClientStatus> opened = std::async(std::launch::async, [&] { return receiver.open(); });
    std::this_thread::sleep_for(300ms);
    const ChildProcess sender({"ffmpeg", "-re", "-stream_loop", "3", "-i", sent->file, "-c", "copy", "-f",
                               "rtp_mpegts", "-mpegts_muxer_options", "mpegts_flags=latm",
                               "rtp://127.0.0.1:" + std::to_string(port)});
    ASSERT_EQ(keClientOk, opened.get());
    ASSERT_EQ(2U, receiver.source->streams().size());
    const auto video = static_cast<std::size_t>(streamOfType(*receiver.source, keStreamTypeH264));
    const auto audio = static_cast<std::size_t>(streamOfType(*receiver.source, keStreamTypeLatm));
    EXPECT_EQ(sent->parameterSets, receiver.source->streams().at(video).codecConfig);
    EXPECT_EQ(sent->audioConfig, receiver.source->streams().at(audio).codecConfig);
    EXPECT_EQ(48000U, receiver.source->streams().at(audio).audioSamplingRate);
    ASSERT_EQ(keClientOk, receiver.start());
    ASSERT_TRUE(receiver.sink->waitForUnits(audio, 60, 10s));
    receiver.source->stop();

    expectFrames(repeated(sent->pictures, 2), slices(receiver.sink->units(video)), Extent::runInside, 0);
    const auto units = receiver.sink->units(audio);
    expectRising(units);
    const std::vector<ByteVector> frames = repeated(sent->audioFrames, 2);
    std::size_t next = 0;
    while (next < frames.size() && !contains(units[0].bytes, frames[next])) {
        ++next;
    }
    for (const RecordingSink::Unit& unit : units) {
        ASSERT_EQ(0x56, unit.bytes[0]);
        EXPECT_EQ(0, unit.bytes[3] & 0x80) << "the frame relies on an earlier configuration";
        ASSERT_LT(next, frames.size());
        ASSERT_TRUE(contains(unit.bytes, frames[next])) << "frame " << next;
        ++next;
    }
}

} // namespace
} // namespace KorvelVideo::NetworkSource::test
