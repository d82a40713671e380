#pragma once

// Real senders, a recording sink and scripted servers for the tests of the source over libavformat.
// Everything runs on loopback with ports that the system chose, and every wait has an end.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

#include "LibavSource.h"

#define KV_NEED(condition, what)                                                                             \
    if (!(condition)) {                                                                                      \
        GTEST_SKIP() << "needs " << (what);                                                                  \
    }

namespace KorvelVideo::NetworkSource::test {

using Clock = std::chrono::steady_clock;
using ByteVector = std::vector<std::uint8_t>;

// Records what a source delivers, as access units in order.
class RecordingSink final : public SourceSink {
public:
    struct Unit {
        std::uint64_t timeStamp;
        ByteVector bytes;
    };

    [[nodiscard]] std::span<std::uint8_t> borrow(std::size_t stream) override;
    void deliver(std::size_t stream, std::uint8_t* buffer, std::uint32_t length,
                 std::uint64_t timeStamp) override;
    void giveBack(std::size_t stream, std::uint8_t* buffer) override;
    bool deliverCopy(std::size_t stream, std::span<const std::span<const std::uint8_t>> pieces,
                     std::uint64_t timeStamp) override;
    void idle() override;
    void end(SourceEnd reason) override;

    [[nodiscard]] std::vector<Unit> units(std::size_t stream) const;
    [[nodiscard]] std::optional<SourceEnd> ended() const;
    [[nodiscard]] unsigned idleCalls() const;
    [[nodiscard]] std::size_t lentBuffers() const;

    std::size_t bufferSize = 4096; // small, so that access units take several
    std::atomic<bool> refusing{false};

    // Waits until the condition, asked after each call, holds; false after `limit`.
    bool waitFor(std::chrono::milliseconds limit, const std::function<bool(const RecordingSink&)>& condition);
    bool waitForUnits(std::size_t stream, std::size_t count, std::chrono::milliseconds limit);
    bool waitForEnd(std::chrono::milliseconds limit);

private:
    void append(std::size_t stream, std::span<const std::uint8_t> bytes, std::uint64_t timeStamp);

    mutable std::recursive_mutex m_mutex;
    std::condition_variable_any m_changed;
    std::vector<std::vector<Unit>> m_units;
    std::map<const std::uint8_t*, ByteVector> m_lent;
    std::optional<SourceEnd> m_ended;
    unsigned m_idleCalls = 0;
};

// A program that is killed when the object ends.
class ChildProcess {
public:
    // Its standard output can be waited for; its standard error goes to /dev/null.
    explicit ChildProcess(const std::vector<std::string>& arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    bool waitForOutput(const std::string& text, std::chrono::milliseconds limit);
    // The exit code; -1 when it still runs after `limit`.
    int waitForExit(std::chrono::milliseconds limit);
    void signal(int number) const;

private:
    pid_t m_process = -1;
    int m_output = -1;
    std::string m_text;
};

[[nodiscard]] bool programExists(const std::string& name);
// A port that nothing has, for TCP or as the first of `count` neighbouring ones for UDP.
[[nodiscard]] std::uint16_t freeTcpPort();
[[nodiscard]] std::uint16_t freeUdpPorts(unsigned count);
[[nodiscard]] bool udpPortIsFree(std::uint16_t port);
// A connection to the port on loopback; -1 when it is refused.
[[nodiscard]] int connectTo(std::uint16_t port);
// A connection is accepted there before `limit`.
bool waitForTcpPort(std::uint16_t port, std::chrono::milliseconds limit);

// A directory that is removed when the object ends.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();
    [[nodiscard]] std::string path(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// A short Matroska file with H.264 and AAC that ffmpeg makes, and what is in it.
struct Clip {
    std::string file;
    std::vector<ByteVector> pictures;    // the slice NAL units, in order
    std::vector<ByteVector> audioFrames; // raw AAC
    ByteVector parameterSets;            // Annex B
    ByteVector audioConfig;
};
// The clip made with these further encoder options, once a process; empty when there is no ffmpeg.
[[nodiscard]] const Clip* clip(const std::string& encoderOptions = "-bf 0");

// Slice NAL units of delivered access units, in order.
[[nodiscard]] std::vector<ByteVector> slices(const std::vector<RecordingSink::Unit>& units);
[[nodiscard]] std::vector<ByteVector> payloads(const std::vector<RecordingSink::Unit>& units);
[[nodiscard]] ByteVector readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);

// Accepts connections on loopback and hands each to the script on a thread of its own.
class ScriptedServer {
public:
    using Script = std::function<void(int connection)>;
    explicit ScriptedServer(Script script);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();
    [[nodiscard]] std::uint16_t port() const noexcept { return m_port; }
    [[nodiscard]] unsigned accepted() const noexcept { return m_accepted; }

private:
    void accept();
    Script m_script;
    int m_socket = -1;
    std::uint16_t m_port = 0;
    std::atomic<unsigned> m_accepted{0};
    std::atomic<bool> m_stopped{false};
    // The acceptor's own until it has ended.
    std::vector<int> m_connections;
    std::vector<std::thread> m_threads;
    std::thread m_acceptor;
};

// Of use to scripts: the request up to its empty line (empty at the end of the connection), and a reply.
[[nodiscard]] std::string readRequest(int connection);
bool sendText(int connection, const std::string& text);
// Passes on what either side sends, to `server` rewritten, until one closes.
void relay(int client, int server, const std::function<std::string(std::string)>& rewrite);
// An RTSP reply with the request's sequence number.
[[nodiscard]] std::string rtspReply(const std::string& request, const std::string& status,
                                    const std::string& headers = "", const std::string& body = "");

// A source with its streams announced and, after `start`, its data recorded.
struct Receiver {
    explicit Receiver(const std::string& address) : source(makeLibavSource(address)) {}
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() { source->stop(); }

    ClientStatus open() { return source->open(parameters, Clock::now() + std::chrono::seconds(10)); }
    ClientStatus start() { return source->start(parameters, sink); }

    std::shared_ptr<Source> source;
    std::shared_ptr<RecordingSink> sink = std::make_shared<RecordingSink>();
    SourceParameters parameters;
};

// A URL on loopback.
[[nodiscard]] std::string loopbackUrl(const std::string& scheme, std::uint16_t port, const std::string& path);
// A session description on loopback with these media lines.
[[nodiscard]] std::string description(const std::string& media);
// The script of the RTSP server.
inline const std::string kRtspServer = KV_TEST_TOOLS "/rtsp_server.py";

} // namespace KorvelVideo::NetworkSource::test
