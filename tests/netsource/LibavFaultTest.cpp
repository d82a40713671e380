// Senders that refuse, stay silent, lie or die: each ends in its status, and a stop never waits for them.

#include <csignal>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "LibavInput.h"
#include "LibavSource.h"
#include "LibavTestSupport.h"

namespace {

using namespace ClientTest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Script = std::function<void(int connection)>;

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
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer() { // once its clients have gone
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }
    [[nodiscard]] std::string url(const std::string& scheme) const {
        return loopbackUrl(scheme, ntohs(m_address.sin_port), "/live/a");
    }

private:
    const int m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in m_address{};
    std::thread m_thread;
};

// In its time, with room for a slow machine.
void expectFailure(const std::string& address, ClientStatus status) {
    SCOPED_TRACE(address.substr(0, 200));
    const auto source = makeLibavSource(address);
    const auto start = Clock::now();
    EXPECT_EQ(source->open(SourceParameters{}, start + (status == keClientTimedOut ? 500ms : 20s)), status);
    EXPECT_LT(Clock::now() - start, 30s);
    EXPECT_TRUE(source->streams().empty());
}

bool sendText(int connection, const std::string& text) {
    return send(connection, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

// Answers DESCRIBE with a text and other requests well; without a text, none at all.
Script describing(const std::string& answer) {
    return [=](int connection) {
        char request[4096];
        for (ssize_t size = 0; (size = recv(connection, request, sizeof(request), 0)) > 0;) {
            const bool isDescribe =
                std::string_view(request, static_cast<std::size_t>(size)).starts_with("DESCRIBE");
            if (!answer.empty()) {
                sendText(connection, "RTSP/1.0 " + (isDescribe ? answer : "200 OK\r\n\r\n"));
            }
        }
    };
}

// Sends garbage until the peer is gone or has got enough.
Script garbage(std::size_t blocks) {
    return [=](int connection) {
        for (std::size_t i = 0; i < blocks && sendText(connection, std::string(65536, '\xA5')); ++i) {
        }
        describing("")(connection);
    };
}

TEST(LibavOpenFault, EndsInItsStatus) {
    struct Row {
        const char* scheme;
        ClientStatus status;
        Script script;
    };
    const Row rows[] = {
        {"rtsp", keClientTimedOut, describing("")},
        {"rtsp", keClientTimedOut, garbage(~std::size_t{0})},
        {"rtsp", keClientTimedOut, describing("200 OK\r\nContent-Length: 100000\r\n\r\n")},
        {"rtsp", keClientNotFound, describing("404 Not Found\r\n\r\n")},
        {"rtsp", keClientAccessDenied, describing("401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\n\r\n")},
        {"rtsp", keClientConnectionFailed, describing("200 OK\r\n\r\n")},
        {"rtsp", keClientNotSupported, describing("200 OK\r\nContent-Length: 8\r\n\r\nv=0\r\no=-")},
        {"rtsp", keClientConnectionFailed, describing("200 OK\r\nContent-Length: 1048577\r\n\r\n")},
        {"rtsp", keClientConnectionFailed, describing("302 Found\r\nLocation: file:///etc/passwd\r\n\r\n")},
        {"rtmp", keClientTimedOut, describing("")},
        {"rtmp", keClientConnectionFailed, [](int) {}},
        {"rtmp", keClientConnectionFailed, garbage(4)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        const ScriptedServer server(row.script);
        expectFailure(server.url(row.scheme), row.status);
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

TEST(LibavOpenFault, WrongAddressesAreRefused) {
    const std::string port = std::to_string(freePorts());
    for (const auto& [address, status] : std::vector<std::pair<std::string, ClientStatus>>{
             {"rtsp:///path", keClientInvalidParameter},
             {"rtsp://127.0.0.1/a\r\nSession: 1", keClientInvalidParameter},
             {"rtsp://127.0.0.1/" + std::string(4096, 'a'), keClientInvalidParameter},
             {"rtsp://no-such-host.invalid/a", keClientUnknownHost},
             {"rtmp://127.0.0.1:" + port + "/live/a", keClientConnectionRefused},
             {description(""), keClientInvalidParameter},
             {description("m=video 0 RTP/AVP 96\r\n" + std::string(1 << 20, 'a')), keClientInvalidParameter},
             {description("m=audio " + port + " RTP/AVP 0\r\n"), keClientNotSupported}}) {
        expectFailure(address, status);
    }
    for (const char* const other : {"http://127.0.0.1/a", "file:///etc/passwd", ""}) {
        EXPECT_EQ(makeLibavSource(other), nullptr) << other;
    }
}

// A sender that describes itself well and then sends nothing.
TEST(LibavPlayFault, NoDataIsNoSilenceAndStops) {
    Receiver receiver(testSurroundings());
    const std::uint16_t port = freePorts();
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

TEST(LibavPlayFault, AServerThatDiesOrFreezes) {
    KV_NEED(!clip().empty(), "ffmpeg with libx264");
    const std::uint16_t port = freePorts();
    const ChildProcess server(KV_TEST_TOOLS "/rtsp_server.py " + std::to_string(port) + " " + clip());
    KV_NEED(server.waitForLine(), "python3-gi and gir1.2-gst-rtsp-server-1.0");
    for (const int fault : {SIGSTOP, SIGKILL}) {
        Receiver receiver(testSurroundings());
        ASSERT_EQ(receiver.init(loopbackUrl("rtsp", port, "/clip")), keClientOk);
        ASSERT_EQ(receiver.play(), keClientOk);
        ASSERT_TRUE(waitFor([&] { return receiver.consumer().size > 0; }));
        server.signal(fault);
        const auto told = [&] {
            advanceClock(fault == SIGSTOP ? 100ms : 0ms);
            return receiver.wasTold(fault == SIGSTOP ? keNotifySilence : keNotifyDisconnected);
        };
        EXPECT_TRUE(waitFor(told));
        EXPECT_EQ(receiver.stop(), keClientOk);
        server.signal(SIGCONT);
    }
}

TEST(LibavInput, CredentialsAreHidden) {
    for (const auto& [shown, text] : std::vector<std::pair<std::string, std::string>>{
             {"rtsp://***@host/a", "rtsp://us/er:p@ss@host/a"},
             {"rtsp://host/a", "rtsp://host/a"},
             {"to rtsp://***@a and rtmp://***@b.", "to rtsp://x:y@a and rtmp://z@b."}}) {
        EXPECT_EQ(withoutCredentials(text), shown);
    }
}

} // namespace
