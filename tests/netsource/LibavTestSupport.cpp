#include "LibavTestSupport.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ClientTest {

ChildProcess::ChildProcess(const std::string& command) {
    std::array<int, 2> output{};
    if (pipe2(output.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const std::string quiet = "exec " + command + " </dev/null 2>/dev/null";
    m_process = fork();
    if (m_process == 0) {
        dup2(output[1], 1);
        execl("/bin/sh", "sh", "-c", quiet.c_str(), nullptr);
        _exit(127);
    }
    close(output[1]);
    m_output = output[0];
}

ChildProcess::~ChildProcess() {
    signal(SIGKILL);
    waitpid(m_process, nullptr, 0);
    close(m_output);
}

bool ChildProcess::waitForLine() const {
    char next = 0;
    pollfd ready{m_output, POLLIN, 0};
    while (next != '\n' && poll(&ready, 1, 30'000) > 0 && read(m_output, &next, 1) == 1) {
    }
    return next == '\n';
}

void ChildProcess::signal(int number) const { kill(m_process, number); }

bool portIsTaken(const std::string& protocol, int port) {
    std::ifstream table("/proc/net/" + protocol);
    std::array<char, 8> wanted{};
    std::snprintf(wanted.data(), wanted.size(), ":%04X ", static_cast<unsigned>(port));
    for (std::string line; std::getline(table, line);) { // "  5: 0100007F:1F90 00000000:0000 ..."
        const std::size_t found = line.find(wanted.data());
        if (found != std::string::npos && found == line.find(':', line.find(':') + 1)) {
            return true;
        }
    }
    return false;
}

std::uint16_t freePorts() {
    static std::atomic<int> next = getpid() % 300 * 64;
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const int first = 10'000 + (next += 8) % 20'000;
        bool allFree = true;
        for (int port = first; port < first + 8; ++port) {
            allFree = allFree && !portIsTaken("udp", port) && !portIsTaken("tcp", port);
        }
        if (allFree) {
            return static_cast<std::uint16_t>(first);
        }
    }
    throw std::runtime_error("no free ports");
}

const std::string& clip() {
    struct File {
        std::string path =
            std::filesystem::temp_directory_path() / ("kv-" + std::to_string(getpid()) + ".mkv");
        const bool isMade =
            ChildProcess("sh -c 'ffmpeg -y -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i "
                         "sine=sample_rate=48000 "
                         "-t 6 -c:v libx264 -preset veryfast -pix_fmt yuv420p -g 20 -c:a aac -ac 2 " +
                         path + " && echo done'")
                .waitForLine();
        ~File() { std::remove(path.c_str()); }
    };
    static const File file;
    static const std::string none;
    return file.isMade ? file.path : none;
}

std::string loopbackUrl(const std::string& scheme, std::uint16_t port, const std::string& path) {
    return scheme + "://127.0.0.1:" + std::to_string(port) + path;
}

std::string description(const std::string& media) {
    return "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n" + media;
}

} // namespace ClientTest
