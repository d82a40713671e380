#include "LibavTestSupport.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "AacFraming.h"
#include "AvcFraming.h"

namespace KorvelVideo::NetworkSource::test {

using namespace std::chrono_literals;

std::span<std::uint8_t> RecordingSink::borrow(std::size_t /*stream*/) {
    const std::lock_guard lock(m_mutex);
    if (refusing) {
        return {};
    }
    ByteVector buffer(bufferSize);
    std::uint8_t* const address = buffer.data();
    m_lent.emplace(address, std::move(buffer));
    return {address, bufferSize};
}

void RecordingSink::giveBack(std::size_t /*stream*/, std::uint8_t* buffer) {
    const std::lock_guard lock(m_mutex);
    m_lent.erase(buffer);
}

void RecordingSink::deliver(std::size_t stream, std::uint8_t* buffer, std::uint32_t length,
                            std::uint64_t timeStamp) {
    append(stream, {buffer, length}, timeStamp);
    giveBack(stream, buffer);
}

bool RecordingSink::deliverCopy(std::size_t stream, std::span<const std::span<const std::uint8_t>> pieces,
                                std::uint64_t timeStamp) {
    if (refusing) {
        return false;
    }
    for (const auto piece : pieces) {
        append(stream, piece, timeStamp);
    }
    return true;
}

// What bears one time stamp is one access unit, as for the module's consumers.
void RecordingSink::append(std::size_t stream, std::span<const std::uint8_t> bytes, std::uint64_t timeStamp) {
    const std::lock_guard lock(m_mutex);
    if (m_units.size() <= stream) {
        m_units.resize(stream + 1);
    }
    std::vector<Unit>& units = m_units[stream];
    if (units.empty() || units.back().timeStamp != timeStamp) {
        units.push_back({timeStamp, {}});
    }
    units.back().bytes.insert(units.back().bytes.end(), bytes.begin(), bytes.end());
    m_changed.notify_all();
}

std::size_t RecordingSink::lentBuffers() const {
    const std::lock_guard lock(m_mutex);
    return m_lent.size();
}

void RecordingSink::idle() {
    const std::lock_guard lock(m_mutex);
    ++m_idleCalls;
    m_changed.notify_all();
}

void RecordingSink::end(SourceEnd reason) {
    const std::lock_guard lock(m_mutex);
    m_ended = reason;
    m_changed.notify_all();
}

std::vector<RecordingSink::Unit> RecordingSink::units(std::size_t stream) const {
    const std::lock_guard lock(m_mutex);
    return stream < m_units.size() ? m_units[stream] : std::vector<Unit>{};
}

std::optional<SourceEnd> RecordingSink::ended() const {
    const std::lock_guard lock(m_mutex);
    return m_ended;
}

unsigned RecordingSink::idleCalls() const {
    const std::lock_guard lock(m_mutex);
    return m_idleCalls;
}

bool RecordingSink::waitFor(std::chrono::milliseconds limit,
                            const std::function<bool(const RecordingSink&)>& condition) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] { return condition(*this); });
}

bool RecordingSink::waitForUnits(std::size_t stream, std::size_t count, std::chrono::milliseconds limit) {
    return waitFor(limit, [=](const RecordingSink& sink) {
        return stream < sink.m_units.size() && sink.m_units[stream].size() >= count;
    });
}

bool RecordingSink::waitForEnd(std::chrono::milliseconds limit) {
    return waitFor(limit, [](const RecordingSink& sink) { return sink.m_ended.has_value(); });
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    std::array<int, 2> output{};
    if (pipe2(output.data(), O_CLOEXEC) != 0) {
        return;
    }
    std::vector<char*> vector;
    for (const std::string& argument : arguments) {
        vector.push_back(const_cast<char*>(argument.c_str()));
    }
    vector.push_back(nullptr);
    m_process = fork();
    if (m_process == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(output[1], 1);
        dup2(null, 2);
        execvp(vector[0], vector.data());
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
    if (m_output >= 0) {
        close(m_output);
    }
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (m_text.find(text) == std::string::npos && Clock::now() < end) {
        pollfd ready{m_output, POLLIN, 0};
        if (poll(&ready, 1, 50) > 0) {
            std::array<char, 512> buffer{};
            const ssize_t count = read(m_output, buffer.data(), buffer.size());
            if (count <= 0) {
                break;
            }
            m_text.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
    return m_text.find(text) != std::string::npos;
}

int ChildProcess::waitForExit(std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (m_process > 0) {
        int status = 0;
        if (waitpid(m_process, &status, WNOHANG) == m_process) {
            m_process = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
        }
        if (Clock::now() >= end) {
            break;
        }
        std::this_thread::sleep_for(5ms);
    }
    return -1;
}

void ChildProcess::signal(int number) const {
    if (m_process > 0) {
        kill(m_process, number);
    }
}

bool programExists(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return access(name.c_str(), X_OK) == 0;
    }
    std::istringstream folders(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/" + name).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// Binds a new socket of the type; -1 when the port is taken. Stores the port.
int boundSocket(int type, std::uint16_t& port) {
    const int handle = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    socklen_t length = sizeof(address);
    if (bind(handle, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(handle);
        return -1;
    }
    getsockname(handle, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    return handle;
}

} // namespace

std::uint16_t freeTcpPort() {
    std::uint16_t port = 0;
    close(boundSocket(SOCK_STREAM, port));
    return port;
}

std::uint16_t freeUdpPorts(unsigned count) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::uint16_t first = 0;
        std::vector<int> handles{boundSocket(SOCK_DGRAM, first)};
        bool allFree = first % 2 == 0 && first < 65000;
        for (unsigned i = 1; allFree && i < count; ++i) {
            auto next = static_cast<std::uint16_t>(first + i);
            handles.push_back(boundSocket(SOCK_DGRAM, next));
            allFree = handles.back() >= 0;
        }
        for (const int handle : handles) {
            if (handle >= 0) {
                close(handle);
            }
        }
        if (allFree) {
            return first;
        }
    }
    return 0;
}

bool udpPortIsFree(std::uint16_t port) {
    const int handle = boundSocket(SOCK_DGRAM, port);
    if (handle >= 0) {
        close(handle);
    }
    return handle >= 0;
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

bool waitForTcpPort(std::uint16_t port, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (Clock::now() < end) {
        const int handle = connectTo(port);
        if (handle >= 0) {
            close(handle);
            return true;
        }
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

TemporaryDirectory::TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kv-libav-XXXXXX").string();
    m_path = mkdtemp(pattern.data()) != nullptr ? pattern : "";
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

ByteVector readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

namespace {

bool isSlice(Bytes nal) { return nalUnitType(nal) >= 1 && nalUnitType(nal) <= 5; }

void appendSlices(Bytes annexB, std::vector<ByteVector>& slices) {
    std::vector<Bytes> nals;
    splitNalUnits(annexB, 0, nals);
    for (const Bytes nal : nals) {
        if (isSlice(nal)) {
            slices.emplace_back(nal.begin(), nal.end());
        }
    }
}

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

bool makeClip(const std::string& encoderOptions, const TemporaryDirectory& directory, Clip& made) {
    made.file = directory.path("clip.mkv");
    std::vector<std::string> encode = words(
        "ffmpeg -y -loglevel error -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi "
        "-i sine=frequency=440:sample_rate=48000 -t 3 -c:v libx264 -preset veryfast -pix_fmt yuv420p -g 25 "
        "-c:a aac -ac 2 -b:a 96k");
    for (const std::string& option : words(encoderOptions)) {
        encode.push_back(option);
    }
    encode.push_back(made.file);
    const std::string video = directory.path("clip.h264");
    const std::string audio = directory.path("clip.aac");
    if (ChildProcess(encode).waitForExit(30s) != 0 ||
        ChildProcess({"ffmpeg", "-y", "-loglevel", "error", "-i", made.file, "-map", "0:v", "-c", "copy",
                      video, "-map", "0:a", "-c", "copy", "-f", "adts", audio})
                .waitForExit(30s) != 0) {
        return false;
    }
    const ByteVector annexB = readFile(video);
    appendSlices(annexB, made.pictures);
    ParameterSets sets;
    std::vector<Bytes> nals;
    splitNalUnits(annexB, 0, nals);
    std::for_each(nals.begin(), nals.end(), [&](Bytes nal) { sets.keep(nal); });
    made.parameterSets = sets.annexB();
    const ByteVector adts = readFile(audio);
    for (Bytes rest = adts; const std::optional<AdtsFrame> frame = readAdtsFrame(rest);) {
        made.audioFrames.emplace_back(frame->payload.begin(), frame->payload.end());
        made.audioConfig = frame->config;
        rest = rest.subspan(frame->frameLength);
    }
    return true;
}

} // namespace

const Clip* clip(const std::string& encoderOptions) {
    struct Made {
        TemporaryDirectory directory;
        Clip clip;
        bool usable = false;
    };
    static std::map<std::string, Made> clips;
    const auto [found, isNew] = clips.try_emplace(encoderOptions);
    if (isNew && programExists("ffmpeg")) {
        found->second.usable = makeClip(encoderOptions, found->second.directory, found->second.clip);
    }
    return found->second.usable ? &found->second.clip : nullptr;
}

std::vector<ByteVector> slices(const std::vector<RecordingSink::Unit>& units) {
    std::vector<ByteVector> result;
    for (const RecordingSink::Unit& unit : units) {
        appendSlices(unit.bytes, result);
    }
    return result;
}

std::vector<ByteVector> payloads(const std::vector<RecordingSink::Unit>& units) {
    std::vector<ByteVector> result;
    for (const RecordingSink::Unit& unit : units) {
        result.push_back(unit.bytes);
    }
    return result;
}

ScriptedServer::ScriptedServer(Script script) : m_script(std::move(script)) {
    m_socket = boundSocket(SOCK_STREAM, m_port);
    listen(m_socket, 16);
    m_acceptor = std::thread([this] { accept(); });
}

void ScriptedServer::accept() {
    while (!m_stopped) {
        pollfd ready{m_socket, POLLIN, 0};
        if (poll(&ready, 1, 20) <= 0) {
            continue;
        }
        const int connection = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            continue;
        }
        ++m_accepted;
        m_connections.push_back(connection);
        m_threads.emplace_back([this, connection] {
            m_script(connection);
            shutdown(connection, SHUT_RDWR);
        });
    }
}

ScriptedServer::~ScriptedServer() {
    m_stopped = true;
    m_acceptor.join();
    for (const int connection : m_connections) {
        shutdown(connection, SHUT_RDWR);
    }
    for (std::thread& thread : m_threads) {
        thread.join();
    }
    for (const int connection : m_connections) {
        close(connection);
    }
    close(m_socket);
}

std::string readRequest(int connection) {
    std::string request;
    char next = 0;
    while (request.find("\r\n\r\n") == std::string::npos && recv(connection, &next, 1, 0) == 1) {
        request += next;
    }
    return request.find("\r\n\r\n") == std::string::npos ? "" : request;
}

bool sendText(int connection, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count = send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void relay(int client, int server, const std::function<std::string(std::string)>& rewrite) {
    std::array<pollfd, 2> sides{{{client, POLLIN, 0}, {server, POLLIN, 0}}};
    std::array<char, 65536> buffer{};
    while (poll(sides.data(), sides.size(), 10'000) > 0) {
        for (std::size_t i = 0; i < sides.size(); ++i) {
            if (sides[i].revents == 0) {
                continue;
            }
            const ssize_t count = recv(sides[i].fd, buffer.data(), buffer.size(), 0);
            if (count <= 0) {
                return;
            }
            const std::string text(buffer.data(), static_cast<std::size_t>(count));
            if (!sendText(sides[1 - i].fd, i == 0 ? rewrite(text) : text)) {
                return;
            }
        }
    }
}

std::string rtspReply(const std::string& request, const std::string& status, const std::string& headers,
                      const std::string& body) {
    const std::size_t at = request.find("CSeq:");
    const std::string sequence =
        at == std::string::npos ? "0" : request.substr(at + 5, request.find('\r', at) - at - 5);
    return "RTSP/1.0 " + status + "\r\nCSeq:" + sequence + "\r\n" + headers +
           (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" + body;
}

std::string loopbackUrl(const std::string& scheme, std::uint16_t port, const std::string& path) {
    return scheme + "://127.0.0.1:" + std::to_string(port) + path;
}

std::string description(const std::string& media) {
    return "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n" + media;
}

} // namespace KorvelVideo::NetworkSource::test
