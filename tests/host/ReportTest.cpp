#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "Json.h"
#include "KvResultCodes.h"
#include "KvVaneException.h"
#include "MemoryStream.h"
#include "PlatformModule.h"
#include "Report.h"
#include "StatusNames.h"
#include "Terminal.h"

namespace KorvelVideo::Host {

namespace {

StreamDescription video(SKvVideoFormatDescription format, std::uint32_t colour, std::uint32_t profile,
                        std::uint32_t level) {
    StreamDescription description;
    description.type = keKvStreamTypeH264;
    description.format = format;
    description.colourClass = colour;
    description.profile = profile;
    description.level = level;
    return description;
}

StreamDescription audio(std::uint32_t samplingRate, std::uint32_t channels) {
    StreamDescription description;
    description.type = keKvStreamTypeAac;
    description.samplingRate = samplingRate;
    description.channels = channels;
    return description;
}

TEST(StreamDescription, InWords) {
    const std::pair<StreamDescription, const char*> rows[] = {
        {video({28, 1920, 1080, 8, keKvAspectRatio16x9, keKvFrameRate25, keKvScanModeProgressive},
               keKvColourClassBt709, 100, 40),
         "H.264 1920x1080 progressive 25 fps 16:9 BT.709 High@4.0"},
        {video({28, 720, 480, 8, keKvAspectRatio4x3, keKvFrameRate29_97, keKvScanModeInterlaced480}, 0, 77,
               30),
         "H.264 720x480 interlaced 29.97 fps 4:3 Main@3.0"},
        {video({28, 4096, 2160, 10, keKvAspectRatio256x135, keKvFrameRate59_94, keKvScanModeProgressive},
               keKvColourClassBt2020Hlg, 122, 52),
         "H.264 4096x2160 progressive 59.94 fps 256:135 BT.2020 HLG 10 bit High 4:2:2@5.2"},
        {video({28, 176, 144, 8, 0, 0, keKvScanModeProgressive}, 0, 66, 9),
         "H.264 176x144 progressive Baseline@1b"},
        {video({28, 100, 100, 8, 77, 77, 77}, 77, 200, 13), "H.264 100x100 profile 200@1.3"},
        {video({28, 0, 0, 0, 0, 0, 0}, 0, 0, 0), "H.264, format not described"},
        {audio(48000, 2), "AAC 48000 Hz stereo"},
        {audio(44100, 1), "AAC 44100 Hz mono"},
        {audio(48000, 6), "AAC 48000 Hz 5.1"},
        {audio(0, 5), "AAC 5 channels"},
        {audio(0, 0), "AAC"},
        {StreamDescription{}, "MPEG-2 transport stream"},
    };
    for (const auto& [description, words] : rows) {
        EXPECT_EQ(inWords(description), words);
    }
}

class Report : public testing::Test {
protected:
    Report() {
        videoReport.stream = 1;
        videoReport.source = 2;
        videoReport.description = video(
            {28, 1280, 720, 8, keKvAspectRatio16x9, keKvFrameRate59_94, keKvScanModeProgressive}, 0, 77, 31);
        videoReport.bitrate = 4'016'700.4;
        videoReport.units = 250;
        videoReport.bytes = 5'020'000;
        videoReport.timeStamp = 100'000'000;
        videoReport.age = Seconds(0.0204);
        transport.stream = 3;
        transport.source = 1;
        transport.loss = Loss{7, 0, 0, 0, 2};
        transport.file = "out/stream3.ts";
        transport.fileBytes = 1880;
        transport.fileLostUnits = 4;
    }

    StreamReport videoReport;
    StreamReport transport;
};

TEST_F(Report, ForPeople) {
    EXPECT_EQ(announcementText(videoReport, "rtsp://u:p@h/x"),
              "Stream 1: H.264 1280x720 progressive 59.94 fps 16:9 Main@3.1 from rtsp://u:***@h/x");
    EXPECT_EQ(statisticsText(videoReport),
              "Stream 1  H.264    4.02 Mb/s        250 access units  last 0.02 s ago");
    EXPECT_EQ(summaryText(videoReport, Seconds(10)),
              "Stream 1: H.264 1280x720 progressive 59.94 fps 16:9 Main@3.1: "
              "250 access units, 5.02 MB in 10.0 s");
    EXPECT_EQ(announcementText(transport, "udp://a:1"),
              "Stream 3: MPEG-2 transport stream from udp://a:1 -> out/stream3.ts");
    EXPECT_EQ(
        statisticsText(transport),
        "Stream 3  TS           0 b/s          0 buffers  nothing yet  loss: 7 dropped by the system, 2 TS "
        "continuity errors  NOT WHOLE: 4 buffers missing (the disk is too slow)");
    EXPECT_EQ(statusText(3, KV_S_STREAM_SILENT), "Stream 3: KV_S_STREAM_SILENT (no data for 3 s)");
    EXPECT_EQ(statusText(3, static_cast<HRESULT>(0x89991234)), "Stream 3: 0x89991234");
    EXPECT_EQ(statusWords(static_cast<HRESULT>(0x89998295)), "the host is unknown");
}

TEST_F(Report, Json) {
    EXPECT_EQ(announcementJson(Seconds(0.5), videoReport, "rtsp://u:p@h/x"),
              R"({"schema_version":1,"type":"stream","time_seconds":0.500,"stream":1,"source":2,)"
              R"("url":"rtsp://u:***@h/x","media":"h264",)"
              R"("description":"H.264 1280x720 progressive 59.94 fps 16:9 Main@3.1","width_samples":1280,)"
              R"("height_lines":720,"depth_bits":8,"scan":"progressive","frames_per_second":59.940,)"
              R"("display_aspect_ratio":"16:9","colour":null,"profile_idc":77,"level_idc":31})");
    EXPECT_EQ(statisticsJson(Seconds(2), videoReport),
              R"({"schema_version":1,"type":"statistics","time_seconds":2.000,"stream":1,"source":2,)"
              R"("media":"h264","bitrate_bits_per_second":4016700,"received_bytes":5020000,)"
              R"("received_units":250,"last_time_stamp_100ns":100000000,"last_unit_age_seconds":0.020})");
    EXPECT_EQ(summaryJson(Seconds(9), transport, Seconds(8)),
              R"({"schema_version":1,"type":"summary","time_seconds":9.000,"stream":3,"source":1,)"
              R"("media":"mpeg2_ts","bitrate_bits_per_second":0,"received_bytes":0,"received_units":0,)"
              R"("last_time_stamp_100ns":0,"last_unit_age_seconds":null,"source_system_drops_datagrams":7,)"
              R"("source_rtp_lost_packets":0,"source_damaged_packets":0,"source_unbuffered_bytes":0,)"
              R"("source_ts_continuity_errors":2,"file":"out/stream3.ts","file_bytes":1880,)"
              R"("file_lost_units":4,"file_problem":null,"reception_seconds":8.000})");
    EXPECT_EQ(statusJson(Seconds(1), 1, KV_E_DISCONNECTED),
              R"({"schema_version":1,"type":"status","time_seconds":1.000,"stream":1,"code":"0x89998302",)"
              R"("name":"KV_E_DISCONNECTED","words":"the connection was lost","is_failure":true})");
    EXPECT_EQ(endJson(Seconds(1), 4),
              R"({"schema_version":1,"type":"end","time_seconds":1.000,"exit_code":4})");
}

TEST(Json, TextsAreEscaped) {
    const std::pair<const char*, std::string> rows[] = {
        {"a\"b\\c", R"(a\"b\\c)"},
        {"\n\x1b\x7f", R"(\u000a\u001b\u007f)"},
        {"Zürich € \xF0\x9F\x8E\xA5", "Zürich € \xF0\x9F\x8E\xA5"},
        {"\xFF", R"(\ufffd)"},
        {"\xC3", R"(\ufffd)"},                     // cut
        {"\xC0\xAF", R"(\ufffd\ufffd)"},           // overlong
        {"\xED\xA0\x80", R"(\ufffd\ufffd\ufffd)"}, // surrogate
    };
    for (const auto& [text, json] : rows) {
        EXPECT_EQ(JsonObject().add("t", text).text(), "{\"t\":\"" + json + "\"}");
    }
}

TEST(Terminal, LiveLinesStayBelowEverythingElse) {
    MemoryStream output;
    MemoryStream messages;
    Terminal terminal(output.file(), messages.file(), true, {5, 4});
    terminal.show({"one", "a long line"});
    terminal.write("text");
    terminal.show({"two"});
    terminal.makeRoom();
    terminal.makeRoom();
    terminal.show({"three"});
    terminal.complain("wrong");
    terminal.show({"1", "2", "3", "4"}); // as many as the screen has rows beside the cursor's
    terminal.makeRoom();
    EXPECT_EQ(output.text(), "one\na lon\n\x1b[2A\x1b[Jtext\ntwo\n\x1b[1A\x1b[Jthree\n\x1b[1A\x1b[J"
                             "1\n2\n... and 2 more\n\x1b[3A\x1b[J");
    EXPECT_EQ(messages.text(), "kvreceive: wrong\n");
    MemoryStream file;
    Terminal without(file.file(), messages.file(), false, {});
    without.show({"a long line"});
    without.makeRoom();
    without.write("text");
    EXPECT_EQ(file.text(), "a long line\ntext\n");
}

TEST(Terminal, SaysWhenItsReaderHasGone) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    std::FILE* output = fdopen(ends[1], "w");
    Terminal terminal(output, stderr, false, {});
    terminal.write("read");
    EXPECT_TRUE(terminal.isWritable());
    close(ends[0]);
    terminal.write("not read");
    EXPECT_FALSE(terminal.isWritable());
    std::fclose(output);
}

// The module and its host are built apart and share no symbols; what one throws the other must still catch.
TEST(Exception, ThrownInAModuleIsCaughtByItsHost) {
    HMODULE module = LoadLibraryA(KV_THROWING_MODULE);
    ASSERT_NE(module, nullptr);
    const auto throwIt = reinterpret_cast<void (*)()>(GetProcAddress(module, "throwVaneException"));
    HRESULT caught = S_OK;
    try {
        throwIt();
    } catch (const CKvVaneException& exception) {
        caught = exception.m_result;
    }
    EXPECT_EQ(caught, KV_E_INVALID_PROTOCOL);
    FreeLibrary(module);
}

} // namespace

} // namespace KorvelVideo::Host
