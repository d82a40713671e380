// The source over libavformat on loopback: real senders, by the ways that the end-to-end tests do not take,
// and servers that refuse, stay silent, lie or die. Each ends in its status, and a stop never waits for them.

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "LibavInput.h"
#include "LibavSource.h"

namespace {

using namespace ClientTest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Script = std::function<void(int connection)>;

// A command that is killed when the object ends, in silence but for its standard output.
class ChildProcess {
public:
    explicit ChildProcess(const std::string& command)
        : m_output(popen(("echo $$; exec " + command + " </dev/null 2>/dev/null").c_str(), "re")) {
        setvbuf(m_output, nullptr, _IONBF, 0); // so that poll sees all there is
        m_process = std::stoi(readLine());
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() {
        signal(SIGKILL);
        pclose(m_output);
    }
    // Empty when the command ends without printing one.
    [[nodiscard]] std::string readLine() const {
        pollfd ready{fileno(m_output), POLLIN, 0};
        char line[100] = {};
        return poll(&ready, 1, 30'000) > 0 && std::fgets(line, sizeof(line), m_output) != nullptr ? line : "";
    }
    void signal(int number) const { kill(m_process, number); }

private:
    std::FILE* const m_output;
    int m_process = 0;
};

// Whether a socket of this process's network is bound to the port; the protocol is "udp" or "tcp".
bool portIsTaken(const std::string& protocol, int port) {
    std::ifstream table("/proc/net/" + protocol);
    char wanted[8];
    std::snprintf(wanted, sizeof(wanted), ":%04X ", static_cast<unsigned>(port) & 0xFFFFU);
    for (std::string line; std::getline(table, line);) { // "  5: 0100007F:1F90 00000000:0000 ..."
        const std::size_t found = line.find(wanted);
        if (found != std::string::npos && found == line.find(':', line.find(':') + 1)) {
            return true;
        }
    }
    return false;
}

// The first, an even one, of eight neighbouring ports that are free for both, below those that the system
// hands out, and never the same one twice in a process.
std::uint16_t freePorts() {
    static int next = getpid() % 300 * 64;
    int first = 0;
    for (int port = 0; port < first + 8; ++port) {
        if (first == 0 || portIsTaken("udp", port) || portIsTaken("tcp", port)) {
            first = 10'000 + (next += 8) % 20'000;
            port = first - 1;
        }
    }
    return static_cast<std::uint16_t>(first);
}

std::string description(const std::string& media) {
    return "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n" + media;
}

// A Matroska file of 6 s, H.264 and AAC (48 kHz, stereo), made once a process; not there without ffmpeg.
const std::string& clip() {
    struct File {
        const std::string path =
            std::filesystem::temp_directory_path() / ("kv-" + std::to_string(getpid()) + ".mkv");
        const std::string done =
            ChildProcess(
                "sh -c 'ffmpeg -y -f lavfi -i testsrc2=size=320x240 -f lavfi -i sine=sample_rate=48000 -t 6 "
                "-c:v libx264 -preset veryfast -pix_fmt yuv420p -g 20 -c:a aac -ac 2 " +
                path + "; echo done'")
                .readLine();
        ~File() { std::remove(path.c_str()); }
    };
    static const File file;
    return file.path;
}

struct RtspServer {
    explicit RtspServer(const std::string& options)
        : process(KV_TEST_TOOLS "/rtsp_server.py " + std::to_string(port) + " " + clip() + " " + options) {}
    [[nodiscard]] std::string url(const std::string& path) const {
        return "127.0.0.1:" + std::to_string(port) + path;
    }
    const std::uint16_t port = freePorts();
    const ChildProcess process;
    const bool isReady = !process.readLine().empty();
};

class RealSender : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(clip()) || !RtspServer("any").isReady) {
            GTEST_SKIP() << "needs ffmpeg with libx264, python3-gi and gir1.2-gst-rtsp-server-1.0";
        }
    }
};

void expectAnnounced(const Receiver& receiver, std::uint32_t audioType) {
    ASSERT_EQ(receiver.announcements.size(), 2U);
    EXPECT_EQ(receiver.announcements[0].streamType, keStreamTypeH264);
    auto audio = receiver.announcements[1];
    audio.codecConfig.resize(2); // some senders append what older decoders skip
    EXPECT_EQ(audio, (Receiver::Announcement{audioType, keMediaAudio, 48000, 2, {0x11, 0x90}}));
}

bool waitForUnits(const Receiver& receiver, std::size_t count) {
    return waitFor([&] {
        return std::min<std::size_t>(receiver.consumer(0).buffers, receiver.consumer(1).buffers) >= count;
    });
}

TEST_F(RealSender, IsReceivedOverRtsp) {
    struct Row {
        const char* options; // protocols, user, password
        const char* login;
        const char* path;
        bool fallsBack, choosesPorts;
    };
    for (const Row& row : {Row{"any", "", "/clip", true, true},
                           {"tcp", "", "/clip", true, false}, // refuses UDP
                           {"any v s3cret", "v:s3cret@", "/clip", false, false},
                           {"any", "", "/bare", false, false}}) { // parameter sets in band only
        SCOPED_TRACE(std::string(row.path) + " " + row.options);
        const RtspServer server(row.options);
        Receiver receiver;
        ASSERT_EQ(receiver.init(std::string("rtsp://") + row.login + server.url(row.path)), keClientOk);
        expectAnnounced(receiver, keStreamTypeAac);
        const std::uint32_t fallback = row.fallsBack ? 1 : 0;
        const std::uint16_t localPort = row.choosesPorts ? freePorts() : 0;
        receiver.client->SetParameter(keParameterInterleavedFallback, &fallback, sizeof(fallback));
        receiver.client->SetParameter(keParameterLocalPort, &localPort, sizeof(localPort));
        ASSERT_EQ(receiver.play(), keClientOk);
        ASSERT_TRUE(waitForUnits(receiver, 1));
        if (row.choosesPorts) {
            EXPECT_TRUE(portIsTaken("udp", localPort) && portIsTaken("udp", localPort + 3));
            ASSERT_TRUE(waitFor([&] { return receiver.wasTold(keNotifyEndOfStream); }));
            EXPECT_EQ(receiver.consumer(0).payloads().size(), 150U) << "6 s of 25 pictures";
        }
    }
}

TEST_F(RealSender, IsReceivedOverTcpOnlyWhenAllowedAndNothingArrivesOverUdp) {
    const RtspServer server("blocked");
    std::array<Receiver, 2> receivers; // the second one may fall back
    const auto start = Clock::now();
    for (const std::uint32_t mayFallBack : {0U, 1U}) {
        Receiver& receiver = receivers.at(mayFallBack);
        ASSERT_EQ(receiver.init("rtsp://" + server.url("/clip")), keClientOk);
        receiver.client->SetParameter(keParameterInterleavedFallback, &mayFallBack, sizeof(mayFallBack));
        ASSERT_EQ(receiver.play(), keClientOk);
    }
    ASSERT_TRUE(waitForUnits(receivers[1], 1));
    EXPECT_GE(Clock::now() - start, 3s);
    EXPECT_EQ(receivers[0].consumer(0).size + receivers[0].consumer(1).size, 0U);
}

TEST_F(RealSender, DiesOrFreezes) {
    const RtspServer server("any");
    for (const int fault : {SIGSTOP, SIGKILL}) {
        Receiver receiver(testSurroundings());
        ASSERT_EQ(receiver.init("rtsp://" + server.url("/clip")), keClientOk);
        ASSERT_EQ(receiver.play(), keClientOk);
        ASSERT_TRUE(waitFor([&] { return receiver.consumer().size > 0; }));
        server.process.signal(fault);
        EXPECT_TRUE(waitFor([&] {
            advanceClock(fault == SIGSTOP ? 100ms : 0ms);
            return receiver.wasTold(fault == SIGSTOP ? keNotifySilence : keNotifyDisconnected);
        }));
        EXPECT_EQ(receiver.stop(), keClientOk);
        server.process.signal(SIGCONT);
    }
}

TEST_F(RealSender, IsReceivedAsLoasInTransportStreamInRtp) {
    const int port = freePorts();
    Receiver receiver;
    auto opened = std::async(std::launch::async, [&] {
        return receiver.init(description("m=video " + std::to_string(port) + " RTP/AVP 33\r\n"));
    });
    // This sender gives up when nobody listens.
    ASSERT_TRUE(waitFor([port] { return portIsTaken("udp", port); }));
    const ChildProcess sender("ffmpeg -re -stream_loop -1 -i " + clip() +
                              " -c copy -f rtp_mpegts -mpegts_muxer_options "
                              "mpegts_flags=latm rtp://127.0.0.1:" +
                              std::to_string(port));
    ASSERT_EQ(opened.get(), keClientOk);
    expectAnnounced(receiver, keStreamTypeLatm);
    ASSERT_EQ(receiver.play(), keClientOk);
    ASSERT_TRUE(waitForUnits(receiver, 60));
    receiver.stop();
    EXPECT_EQ(receiver.consumer(1).data().at(0), 0x56);
}

TEST(LibavDescription, NoDataIsNoSilenceAndStops) {
    Receiver receiver(testSurroundings());
    const int port = freePorts();
    ASSERT_EQ(
        receiver.init(description("m=video " + std::to_string(port) +
                                  " RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 packetization-mode=1; "
                                  "sprop-parameter-sets=Z2QADay0Cg/YCIAAAAMAgAAAGQeKFVA=,aO8Pyw==\r\n")),
        keClientOk);
    ASSERT_EQ(receiver.play(), keClientOk);
    ASSERT_TRUE(waitFor([port] { return portIsTaken("udp", port); }));
    EXPECT_EQ(receiver.stop(), keClientOk);
    EXPECT_TRUE(waitFor([port] { return !portIsTaken("udp", port); }));
    EXPECT_EQ(receiver.consumer().notifications(), std::vector<int>{});
}

void expectFailure(const std::string& address, ClientStatus status) {
    const auto source = makeLibavSource(address);
    const auto limit = Clock::now() + (status == keClientTimedOut ? 500ms : 20s);
    EXPECT_EQ(source->open(SourceParameters{}, limit), status) << address.substr(0, 200);
    EXPECT_LT(Clock::now() - limit, 30s);
}

TEST(LibavOpenFault, WrongAddressesAreRefused) {
    const std::string port = std::to_string(freePorts());
    expectFailure("rtsp:///path", keClientInvalidParameter);
    expectFailure("rtsp://127.0.0.1/a\r\nSession: 1", keClientInvalidParameter);
    expectFailure("rtsp://127.0.0.1/" + std::string(4096, 'a'), keClientInvalidParameter);
    expectFailure("rtsp://no-such-host.invalid/a", keClientUnknownHost);
    expectFailure("rtmp://127.0.0.1:" + port + "/live/a", keClientConnectionRefused);
    expectFailure(description(""), keClientInvalidParameter);
    expectFailure(description("m=video 0 RTP/AVP 96\r\n" + std::string(1 << 20, 'a')),
                  keClientInvalidParameter);
    expectFailure(description("m=audio " + port + " RTP/AVP 0\r\n"), keClientNotSupported);
    for (const char* const other : {"http://127.0.0.1/a", "file:///etc/passwd", ""}) {
        EXPECT_EQ(makeLibavSource(other), nullptr) << other;
    }
}

// Accepts connections on loopback, one after the other, and hands each to the script.
class ScriptedServer {
public:
    explicit ScriptedServer(const Script& script) {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(m_address);
        auto* const address = reinterpret_cast<sockaddr*>(&m_address);
        EXPECT_EQ(bind(m_socket, address, size) + listen(m_socket, 16), 0);
        EXPECT_EQ(getsockname(m_socket, address, &size), 0);
        m_thread = std::thread([this, script] {
            for (int connection = 0; (connection = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
                script(connection);
                close(connection);
            }
        });
    }
    ~ScriptedServer() { // once its clients have gone
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }
    [[nodiscard]] std::string url(const std::string& scheme) const {
        return scheme + "://127.0.0.1:" + std::to_string(ntohs(m_address.sin_port)) + "/live/a";
    }

private:
    const int m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in m_address{};
    std::thread m_thread;
};

bool sendText(int connection, const std::string& text) {
    return send(connection, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

// Answers DESCRIBE with a text and other requests well; without a text, none at all.
Script describing(const std::string& answer) {
    return [=](int connection) {
        char request[4096];
        for (ssize_t size = 0; (size = recv(connection, request, sizeof(request), 0)) > 0;) {
            const std::string_view text(request, static_cast<std::size_t>(size));
            if (!answer.empty()) {
                sendText(connection,
                         "RTSP/1.0 " + (text.starts_with("DESCRIBE") ? answer : "200 OK\r\n\r\n"));
            }
        }
    };
}

TEST(LibavOpenFault, EndsInItsStatus) {
    const std::tuple<const char*, ClientStatus, Script> rows[] = {
        {"rtsp", keClientTimedOut, describing("")},
        {"rtsp", keClientTimedOut, describing("200 OK\r\nContent-Length: 100000\r\n\r\n")},
        {"rtsp", keClientNotFound, describing("404 Not Found\r\n\r\n")},
        {"rtsp", keClientAccessDenied, describing("401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\n\r\n")},
        {"rtsp", keClientConnectionFailed, describing("200 OK\r\n\r\n")},
        {"rtsp", keClientNotSupported, describing("200 OK\r\nContent-Length: 8\r\n\r\nv=0\r\no=-")},
        {"rtsp", keClientConnectionFailed, describing("200 OK\r\nContent-Length: 1048577\r\n\r\n")},
        {"rtsp", keClientConnectionFailed, describing("302 Found\r\nLocation: file:///etc/passwd\r\n\r\n")},
        {"rtmp", keClientTimedOut, describing("")},
        {"rtmp", keClientConnectionFailed, [](int) {}},
    };
    for (const auto& [scheme, status, script] : rows) {
        const ScriptedServer server(script);
        expectFailure(server.url(scheme), status);
    }
    std::string location;
    std::atomic<int> connections{0};
    const ScriptedServer redirecting([&](int connection) {
        ++connections;
        describing("302 Found\r\nLocation: " + location + "\r\n\r\n")(connection);
    });
    location = redirecting.url("rtsp");
    expectFailure(location, keClientConnectionFailed);
    EXPECT_LE(connections, 2 + static_cast<int>(LibavInput::kMostRedirects)) << "redirects to itself";
}

TEST(LibavInput, CredentialsAreHidden) {
    EXPECT_EQ(withoutCredentials("rtsp://us/er:p@ss@host/a"), "rtsp://***@host/a");
    EXPECT_EQ(withoutCredentials("to rtsp://x:y@a and rtmp://b."), "to rtsp://***@a and rtmp://b.");
}

} // namespace
