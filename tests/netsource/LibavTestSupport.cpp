#include "LibavTestSupport.h"

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <map>
#include <sstream>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "AacFraming.h"
#include "AvcFraming.h"

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
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    close(m_output);
}

bool ChildProcess::waitForLine() const {
    char next = 0;
    for (pollfd ready{m_output, POLLIN, 0}; poll(&ready, 1, 30'000) > 0 && read(m_output, &next, 1) == 1;) {
        if (next == '\n') {
            return true;
        }
    }
    return false;
}

bool ChildProcess::succeeds() {
    int status = -1;
    if (waitFor([&] { return waitpid(m_process, &status, WNOHANG) == m_process; })) {
        m_process = -1;
    }
    return m_process == -1 && status == 0;
}

void ChildProcess::signal(int number) const { kill(m_process, number); }

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace

bool portIsTaken(const std::string& protocol, int port) {
    std::ifstream table("/proc/net/" + protocol);
    std::ostringstream wanted;
    wanted << ':' << std::hex << std::uppercase << std::setw(4) << std::setfill('0') << port << ' ';
    for (std::string line; std::getline(table, line);) { // "  5: 0100007F:1F90 00000000:0000 ..."
        const std::size_t found = line.find(wanted.str());
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

int connectTo(std::uint16_t port) {
    const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(handle);
        return -1;
    }
    return handle;
}

std::string temporaryFile(const std::string& name) {
    struct Directory {
        std::filesystem::path path =
            std::filesystem::temp_directory_path() / ("kv-libav-" + std::to_string(getpid()));
        Directory() { std::filesystem::create_directories(path); }
        Directory(const Directory&) = delete;
        Directory& operator=(const Directory&) = delete;
        ~Directory() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    };
    static const Directory directory;
    return directory.path / name;
}

Octets readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<Octets> slices(const Octets& annexB) {
    std::vector<Bytes> nals;
    splitNalUnits(annexB, 0, nals);
    std::vector<Octets> result;
    for (const auto nal : nals) {
        if (nalUnitType(nal) >= 1 && nalUnitType(nal) <= 5) {
            result.emplace_back(nal.begin(), nal.end());
        }
    }
    return result;
}

namespace {

bool makeClip(int bPictures, double seconds, Clip& made) {
    const std::string name =
        temporaryFile("clip" + std::to_string(bPictures) + "-" + std::to_string(seconds));
    made.file = name + ".mkv";
    ChildProcess encoder("ffmpeg -y -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi "
                         "-i sine=frequency=440:sample_rate=48000 -c:v libx264 -preset veryfast "
                         "-pix_fmt yuv420p -g 20 -c:a aac -ac 2 -b:a 96k -bf " +
                         std::to_string(bPictures) + " -t " + std::to_string(seconds) + " " + made.file);
    if (!encoder.succeeds() || !ChildProcess("ffmpeg -y -i " + made.file + " -map 0:v -c copy " + name +
                                             ".h264 -map 0:a -c copy -f adts " + name + ".aac")
                                    .succeeds()) {
        return false;
    }
    const Octets annexB = readFile(name + ".h264");
    made.pictures = slices(annexB);
    ParameterSets sets;
    std::vector<Bytes> nals;
    splitNalUnits(annexB, 0, nals);
    for (const auto nal : nals) {
        sets.keep(nal);
    }
    made.parameterSets = sets.annexB();
    const Octets adts = readFile(name + ".aac");
    for (Bytes rest = adts; const auto frame = readAdtsFrame(rest);) {
        made.audioFrames.emplace_back(frame->payload.begin(), frame->payload.end());
        made.audioConfig = frame->config;
        rest = rest.subspan(frame->frameLength);
    }
    return true;
}

} // namespace

const Clip* clip(int bPictures, double seconds) {
    static std::map<std::pair<int, double>, std::pair<Clip, bool>> clips;
    const auto [found, isNew] = clips.try_emplace({bPictures, seconds});
    auto& [made, usable] = found->second;
    usable = isNew ? makeClip(bPictures, seconds, made) : usable;
    return usable ? &made : nullptr;
}

ScriptedServer::ScriptedServer(Script script)
    : m_script(std::move(script)), m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    if (bind(m_socket, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
        throw std::runtime_error("no port");
    }
    getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
    m_port = ntohs(address.sin_port);
    listen(m_socket, 16);
    m_acceptor = std::async(std::launch::async, [this] {
        for (int connection = 0; (connection = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            m_connections.push_back(connection);
            m_scripts.push_back(std::async(std::launch::async, [this, connection] {
                m_script(connection);
                shutdown(connection, SHUT_RDWR);
            }));
        }
    });
}

ScriptedServer::~ScriptedServer() {
    shutdown(m_socket, SHUT_RDWR); // ends the acceptor
    m_acceptor.wait();
    for (const int connection : m_connections) {
        shutdown(connection, SHUT_RDWR);
    }
    m_scripts.clear(); // waits for them
    for (const int connection : m_connections) {
        close(connection);
    }
    close(m_socket);
}

std::string readRequest(int connection) {
    std::string request;
    char next = 0;
    while (!request.ends_with("\r\n\r\n") && recv(connection, &next, 1, 0) == 1) {
        request += next;
    }
    return request.ends_with("\r\n\r\n") ? request : "";
}

bool sendText(int connection, const std::string& text) {
    std::size_t sent = 0;
    for (ssize_t count = 0; sent < text.size(); sent += static_cast<std::size_t>(count)) {
        count = send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
    }
    return true;
}

std::string loopbackUrl(const std::string& scheme, std::uint16_t port, const std::string& path) {
    return scheme + "://127.0.0.1:" + std::to_string(port) + path;
}

std::string description(const std::string& media) {
    return "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n" + media;
}

} // namespace ClientTest
