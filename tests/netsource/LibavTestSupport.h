#pragma once

// Real senders and scripted servers for the tests of the source over libavformat, on loopback only.

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
    void signal(int number) const;

private:
    int m_process = -1;
    int m_output = -1;
};

// Whether a socket of this process's network is bound to the port; the protocol is "udp" or "tcp".
[[nodiscard]] bool portIsTaken(const std::string& protocol, int port);
// The first, an even one, of eight neighbouring ports that are free for both, below those that the system
// hands out, and never the same one twice in a process.
[[nodiscard]] std::uint16_t freePorts();

// A Matroska file of 6 s, H.264 and AAC (48 kHz, stereo), made once a process; empty without ffmpeg.
[[nodiscard]] const std::string& clip();

// A URL on loopback, and a session description with these media lines.
[[nodiscard]] std::string loopbackUrl(const std::string& scheme, std::uint16_t port, const std::string& path);
[[nodiscard]] std::string description(const std::string& media);

} // namespace ClientTest
