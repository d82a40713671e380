#pragma once

// Real senders and scripted servers for the tests of the source over libavformat, on loopback only.

#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <sys/types.h>
#include <vector>

#include "ClientTestSupport.h"

#define KV_NEED(condition, what)                                                                             \
    if (!(condition)) {                                                                                      \
        GTEST_SKIP() << "needs " << (what);                                                                  \
    }

namespace ClientTest {

// A command that is killed when the object ends, in silence but for its standard output.
class ChildProcess {
public:
    explicit ChildProcess(const std::string& command);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    // False when the command ends without printing a line.
    [[nodiscard]] bool waitForLine() const;
    // Whether it ended well, in bounded time.
    [[nodiscard]] bool succeeds();
    void signal(int number) const;

private:
    pid_t m_process = -1;
    int m_output = -1;
};

// Whether a socket of this process's network is bound to the port; the protocol is "udp" or "tcp".
[[nodiscard]] bool portIsTaken(const std::string& protocol, int port);
// The first, an even one, of eight neighbouring ports that are free for both, below those that the system
// hands out, and never the same one twice in a process.
[[nodiscard]] std::uint16_t freePorts();
// A connection to the port on loopback; -1 when it is refused.
[[nodiscard]] int connectTo(std::uint16_t port);
// A file in a directory that is removed when the process ends.
[[nodiscard]] std::string temporaryFile(const std::string& name);
[[nodiscard]] Octets readFile(const std::string& path);

// A short Matroska file with H.264 and AAC that ffmpeg makes, and what is in it.
struct Clip {
    std::string file;
    std::vector<Octets> pictures;    // the slice NAL units, in order
    std::vector<Octets> audioFrames; // raw AAC
    Octets parameterSets;            // Annex B
    Octets audioConfig;
};
// The clip with this many B pictures in a row, made once a process; null when there is no ffmpeg.
[[nodiscard]] const Clip* clip(int bPictures = 0, double seconds = 1.6);
// The slice NAL units in Annex B, in order.
[[nodiscard]] std::vector<Octets> slices(const Octets& annexB);

// Accepts connections on loopback and hands each to the script on a thread of its own.
class ScriptedServer {
public:
    using Script = std::function<void(int connection)>;
    explicit ScriptedServer(Script script);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();
    [[nodiscard]] std::uint16_t port() const noexcept { return m_port; }

private:
    const Script m_script;
    std::uint16_t m_port = 0;
    int m_socket = -1;
    std::vector<int> m_connections;           // the acceptor's own until it has ended
    std::vector<std::future<void>> m_scripts; // so is this
    std::future<void> m_acceptor;
};

// Of use to scripts: the request up to its empty line (empty at the end of the connection), and sending.
[[nodiscard]] std::string readRequest(int connection);
bool sendText(int connection, const std::string& text);

// A URL on loopback, and a session description with these media lines.
[[nodiscard]] std::string loopbackUrl(const std::string& scheme, std::uint16_t port, const std::string& path);
[[nodiscard]] std::string description(const std::string& media);

} // namespace ClientTest
