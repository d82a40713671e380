#include "Application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

#include "FakeComponent.h"
#include "KvResultCodes.h"
#include "MemoryStream.h"
#include "TemporaryFolder.h"

namespace KorvelVideo::Host {

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr HRESULT hostUnknown = static_cast<HRESULT>(0x89998295);

struct Outcome {
    ExitCode exitCode = exitReceived;
    std::string output;
    std::string messages;
    std::vector<std::string> calls;
};

// Runs kvreceive with these arguments against a component that plays the script.
Outcome receive(const FakeScript& script, const std::vector<const char*>& arguments) {
    MemoryStream output;
    MemoryStream messages;
    Terminal terminal(output.file(), messages.file(), false, 80);
    const FakeComponent component(script);
    Outcome result;
    {
        const auto parsed = parseOptions(arguments);
        Application application(std::get<Options>(parsed), terminal);
        result.exitCode = application.run();
    }
    result.output = output.text();
    result.messages = messages.text();
    result.calls = component.calls();
    return result;
}

FakeStream transport(std::vector<std::string> units, std::vector<HRESULT> statuses) {
    return {keKvStreamTypeTransportStream, std::move(units), std::move(statuses)};
}

const std::vector<HRESULT> activeThenEnded{KV_S_STREAM_ACTIVE, KV_S_STREAM_ENDED};

TEST(Application, ExitCodes) {
    struct Row {
        const char* name;
        FakeScript script;
        std::vector<const char*> arguments;
        ExitCode exitCode;
        const char* message;
    };
    FakeScript received;
    received.streams = {transport({"abc"}, activeThenEnded)};
    FakeScript openFailed;
    openFailed.openResult = hostUnknown;
    FakeScript startFailed = received;
    startFailed.startResult = KV_E_CONNECTION_FAILED;
    FakeScript nothing;
    nothing.streams = {transport({}, {KV_S_STREAM_ENDED})};
    FakeScript silent;
    silent.streams = {transport({}, {})};
    FakeScript lost;
    lost.streams = {transport({"abc"}, {KV_S_STREAM_ACTIVE, KV_E_DISCONNECTED})};
    FakeScript redirectFailed;
    redirectFailed.streams = {transport({"abc"}, {KV_S_STREAM_ACTIVE})};
    redirectFailed.redirectResult = hostUnknown;
    const Row rows[] = {
        {"received", received, {"udp://a:1"}, exitReceived, ""},
        {"open failed",
         openFailed,
         {"rtsp://u:p@a"},
         exitOpenFailed,
         "kvreceive: cannot open rtsp://u:***@a: the host is unknown (0x89998295)\n"},
        {"start failed",
         startFailed,
         {"udp://a:1"},
         exitOpenFailed,
         "kvreceive: cannot start udp://a:1: the source could not be opened (KV_E_CONNECTION_FAILED)\n"},
        {"ended without data", nothing, {"udp://a:1"}, exitNothingCame, ""},
        {"silent", silent, {"udp://a:1", "--duration", "0"}, exitNothingCame, ""},
        {"lost", lost, {"udp://a:1"}, exitConnectionLost, ""},
        {"no description file",
         received,
         {"/nonexistent/x.sdp"},
         exitOpenFailed,
         "kvreceive: cannot read /nonexistent/x.sdp: No such file or directory\n"},
        {"redirect failed",
         redirectFailed,
         {"udp://a:1", "--redirect", "udp://b:2", "--redirect-after", "0"},
         exitOpenFailed,
         "kvreceive: cannot redirect to udp://b:2: the host is unknown (0x89998295)\n"},
        {"one of two fails", received, {"udp://a:1", "/nonexistent/x.sdp"}, exitOpenFailed, nullptr},
    };
    for (const Row& row : rows) {
        const Outcome result = receive(row.script, row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.name;
        if (row.message != nullptr) {
            EXPECT_EQ(result.messages, row.message) << row.name;
        }
    }
}

TEST(Application, EveryProtocolGetsItsFactoryAndSettings) {
    const TemporaryFolder folder;
    const std::string description = folder.path() + "/a.sdp";
    std::ofstream(description) << "v=0\n";
    struct Row {
        std::vector<const char*> arguments;
        std::string create;
    };
    const Row rows[] = {
        {{"rtsp://a/x", "--port", "6000"}, "rtsp create rtsp://a/x (none) 6000"},
        {{"rtmp://a/x", "--nic", "eth0"}, "rtmp create rtmp://a/x eth0 0"},
        {{"rtp://a:1", "--client-option", "9"}, "rtp create rtp://a:1 (none) 9"},
        {{description.c_str()}, "rtp create " + description + " (none) 0"},
        {{"udp://a:1"}, "ts create udp://a:1 (none)"},
    };
    FakeScript script;
    script.streams = {transport({"abc"}, activeThenEnded)};
    for (const Row& row : rows) {
        EXPECT_THAT(receive(script, row.arguments).calls, ElementsAre(row.create, "start", "stop", "end"));
    }
}

TEST(Application, WritesEachStreamToItsFile) {
    const TemporaryFolder folder;
    const std::string output = folder.path() + "/new/folder";
    const std::string picture("\0\0\1\x67", 4);
    FakeScript script;
    script.streams = {{keKvStreamTypeH264, {picture, "video2"}, activeThenEnded},
                      {keKvStreamTypeAac, {"ab", "cd"}, activeThenEnded}};
    const Outcome result = receive(script, {"rtmp://a/x", "--output", output.c_str()});
    EXPECT_EQ(result.exitCode, exitReceived) << result.messages;
    EXPECT_EQ(folder.read("new/folder/stream1.h264"), picture + "video2");
    const std::string header = {'\xFF', '\xF1', '\x4C', '\x80', '\x01', '\x3F', '\xFC'};
    EXPECT_EQ(folder.read("new/folder/stream2.aac"), header + "ab" + header + "cd");
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("Stream 1: H.264 640x360 progressive 25 fps 16:9 BT.709 High@3.0 from "
                                "rtmp://a/x -> " +
                                output + "/stream1.h264\n"),
                      HasSubstr("Stream 2: KV_S_STREAM_ENDED (the stream has ended)\n"),
                      HasSubstr("Stream 2: AAC 48000 Hz stereo: 2 access units, 4 B in ")));
}

TEST(Application, AFileThatCannotBeWrittenDoesNotStopReception) {
    FakeScript script;
    script.streams = {transport({"abc"}, activeThenEnded)};
    Outcome result = receive(script, {"udp://a:1", "--output", "/proc"});
    EXPECT_EQ(result.exitCode, exitOutputFailed);
    EXPECT_THAT(result.messages, HasSubstr("/proc"));
    const TemporaryFolder folder;
    std::ofstream(folder.path() + "/file") << "";
    result = receive(script, {"udp://a:1", "--output", (folder.path() + "/file").c_str()});
    EXPECT_EQ(result.exitCode, exitOutputFailed);
    EXPECT_THAT(result.messages, HasSubstr("cannot write to "));
    EXPECT_THAT(result.calls, ElementsAre());
}

TEST(Application, RedirectGoesOnWithNewStreams) {
    FakeScript script;
    script.streams = {transport({"abc"}, {KV_S_STREAM_ACTIVE})};
    script.redirectStreams = {transport({"defg"}, activeThenEnded)};
    const Outcome result =
        receive(script, {"udp://a:1", "--redirect", "UDP://b:2", "--redirect-after", "0.01", "--json"});
    EXPECT_EQ(result.exitCode, exitReceived);
    EXPECT_THAT(result.calls, ElementsAre("ts create udp://a:1 (none)", "start", "redirect udp://b:2",
                                          "start", "stop", "end"));
    EXPECT_THAT(result.output,
                AllOf(HasSubstr(R"("stream":2,"source":1,"url":"udp://b:2")"),
                      HasSubstr(R"("received_bytes":3,)"), HasSubstr(R"("received_bytes":4,)")));
}

TEST(Application, JsonIsAloneOnStandardOutput) {
    FakeScript script;
    script.streams = {transport({"abc"}, {KV_S_STREAM_ACTIVE, KV_E_DISCONNECTED})};
    const Outcome result = receive(script, {"udp://a:1", "--json"});
    std::istringstream lines(result.output);
    std::vector<std::string> types;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.front(), '{');
        EXPECT_EQ(line.back(), '}');
        const std::string key = R"("type":")";
        const std::size_t begin = line.find(key) + key.size();
        types.push_back(line.substr(begin, line.find('"', begin) - begin));
    }
    std::erase(types, "statistics");
    EXPECT_THAT(types, ElementsAre("stream", "status", "status", "summary", "end"));
    EXPECT_THAT(result.output, HasSubstr(R"("exit_code":5})"));
}

// Ends a run from another thread's hands.
class Interruption {
public:
    void aimAt(Application& application) { m_application = &application; }
    void raise() const { m_application.load()->requestEnd(); }

private:
    std::atomic<Application*> m_application{nullptr};
};

// Standard output that asks for the end as soon as `text` has been written to it.
class InterruptingOutput {
public:
    InterruptingOutput(const Interruption& interruption, std::string text)
        : m_interruption(interruption), m_text(std::move(text)),
          m_file(fopencookie(this, "w", {nullptr, write, nullptr, nullptr})) {}
    InterruptingOutput(const InterruptingOutput&) = delete;
    InterruptingOutput& operator=(const InterruptingOutput&) = delete;
    ~InterruptingOutput() { std::fclose(m_file); }
    [[nodiscard]] std::FILE* file() const { return m_file; }

private:
    static ssize_t write(void* cookie, const char* bytes, std::size_t size) {
        auto* self = static_cast<InterruptingOutput*>(cookie);
        if (std::string_view(bytes, size).find(self->m_text) != std::string_view::npos) {
            self->m_interruption.raise();
        }
        return static_cast<ssize_t>(size);
    }

    const Interruption& m_interruption;
    const std::string m_text;
    std::FILE* m_file;
};

TEST(Application, AnInterruptionStopsCleanly) {
    const TemporaryFolder folder;
    Interruption interruption;
    const InterruptingOutput output(interruption, "Stream 1  TS"); // the first line of statistics
    FakeScript script;
    script.streams = {transport({"abc"}, {KV_S_STREAM_ACTIVE})};
    Terminal terminal(output.file(), stderr, false, 80);
    const FakeComponent component(script);
    {
        const std::vector<const char*> arguments{"udp://a:1", "--output", folder.path().c_str()};
        Application application(std::get<Options>(parseOptions(arguments)), terminal);
        interruption.aimAt(application);
        EXPECT_EQ(application.run(), exitReceived);
    }
    EXPECT_EQ(folder.read("stream1.ts"), "abc");
    EXPECT_THAT(component.calls(), ElementsAre("ts create udp://a:1 (none)", "start", "stop", "end"));
}

TEST(Application, AnInterruptionWhileOpeningDoesNotWait) {
    Interruption interruption;
    FakeScript script;
    script.whileOpening = [&] {
        interruption.raise();
        std::this_thread::sleep_for(std::chrono::minutes(10)); // a source that never answers
    };
    Terminal terminal(stdout, stderr, false, 80);
    const FakeComponent component(script);
    EXPECT_EXIT(
        {
            Application application(std::get<Options>(parseOptions(std::vector<const char*>{"rtsp://a"})),
                                    terminal);
            interruption.aimAt(application);
            std::_Exit(application.run());
        },
        testing::ExitedWithCode(exitOpenFailed), "gave up opening rtsp://a");
}

TEST(ExitCode, TheFirstThatFaredBadlyDecides) {
    struct Row {
        std::vector<ReceptionOutcome> outcomes;
        bool isOutputFailed;
        ExitCode code;
    };
    const ReceptionOutcome good{false, false, true};
    const Row rows[] = {
        {{good, good}, false, exitReceived},
        {{good}, true, exitOutputFailed},
        {{good, {false, true, true}, {true, false, false}}, true, exitConnectionLost},
        {{{true, true, true}}, false, exitOpenFailed},
        {{{false, true, false}}, false, exitConnectionLost},
        {{{false, false, false}}, true, exitNothingCame},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(decideExitCode(row.outcomes, row.isOutputFailed), row.code);
    }
}

} // namespace

} // namespace KorvelVideo::Host
