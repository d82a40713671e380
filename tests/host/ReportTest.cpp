#include "Report.h"

#include <gtest/gtest.h>

#include "Json.h"
#include "KvResultCodes.h"
#include "StatusNames.h"

namespace KorvelVideo::Host {

namespace {

StreamReport videoReport() {
    StreamReport report;
    report.stream = 1;
    report.source = 2;
    report.description.type = keKvStreamTypeH264;
    report.description.format = {
        28, 1280, 720, 8, keKvAspectRatio16x9, keKvFrameRate59_94, keKvScanModeProgressive};
    report.description.profile = 77;
    report.description.level = 31;
    report.bitrate = 4'016'700.4;
    report.units = 250;
    report.bytes = 5'020'000;
    report.timeStamp = 100'000'000;
    report.age = Seconds(0.0204);
    return report;
}

StreamReport transportReport() {
    StreamReport report;
    report.stream = 3;
    report.source = 1;
    report.loss = Loss{7, 0, 0, 0, 2};
    report.file = "out/stream3.ts";
    report.fileBytes = 1880;
    report.fileLostUnits = 4;
    return report;
}

TEST(Report, ForPeople) {
    const StreamReport video = videoReport();
    EXPECT_EQ(announcementText(video, "rtsp://u:p@h/x"),
              "Stream 1: H.264 1280x720 progressive 59.94 fps 16:9 Main@3.1 from rtsp://u:***@h/x");
    EXPECT_EQ(statisticsText(video), "Stream 1  H.264    4.02 Mb/s        250 access units  last 0.02 s ago");
    EXPECT_EQ(summaryText(video, Seconds(10)),
              "Stream 1: H.264 1280x720 progressive 59.94 fps 16:9 Main@3.1: 250 "
              "access units, 5.02 MB in 10.0 s");
    const StreamReport transport = transportReport();
    EXPECT_EQ(announcementText(transport, "udp://a:1"),
              "Stream 3: MPEG-2 transport stream from udp://a:1 -> out/stream3.ts");
    EXPECT_EQ(
        statisticsText(transport),
        "Stream 3  TS           0 b/s          0 buffers  nothing yet  loss: 7 dropped by the system, 2 TS "
        "continuity errors  NOT WHOLE: 4 buffers missing (the disk is too slow)");
    EXPECT_EQ(statusText(3, KV_S_STREAM_SILENT), "Stream 3: KV_S_STREAM_SILENT (no data for 3 s)");
    EXPECT_EQ(statusText(3, static_cast<HRESULT>(0x89991234)), "Stream 3: 0x89991234");
}

TEST(Report, Json) {
    const StreamReport video = videoReport();
    EXPECT_EQ(announcementJson(Seconds(0.5), video, "rtsp://u:p@h/x"),
              R"({"schema_version":1,"type":"stream","time_seconds":0.500,"stream":1,"source":2,)"
              R"("url":"rtsp://u:***@h/x","media":"h264",)"
              R"("description":"H.264 1280x720 progressive 59.94 fps 16:9 Main@3.1","width_samples":1280,)"
              R"("height_lines":720,"depth_bits":8,"scan":"progressive","frames_per_second":59.940,)"
              R"("display_aspect_ratio":"16:9","colour":null,"profile_idc":77,"level_idc":31})");
    EXPECT_EQ(statisticsJson(Seconds(2), video),
              R"({"schema_version":1,"type":"statistics","time_seconds":2.000,"stream":1,"source":2,)"
              R"("media":"h264","bitrate_bits_per_second":4016700,"received_bytes":5020000,)"
              R"("received_units":250,"last_time_stamp_100ns":100000000,"last_unit_age_seconds":0.020})");
    EXPECT_EQ(summaryJson(Seconds(9), transportReport(), Seconds(8)),
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
    struct Row {
        std::string text;
        const char* json;
    };
    const Row rows[] = {
        {"a\"b\\c", R"({"t":"a\"b\\c"})"},
        {"\n\x1b\x7f", R"({"t":"\u000a\u001b\u007f"})"},
        {"Zürich €", "{\"t\":\"Zürich €\"}"},
        {"\xF0\x9F\x8E\xA5", "{\"t\":\"\xF0\x9F\x8E\xA5\"}"},
        {"\xFF", R"({"t":"\ufffd"})"},
        {"\xC3", R"({"t":"\ufffd"})"},                     // cut
        {"\xC0\xAF", R"({"t":"\ufffd\ufffd"})"},           // overlong
        {"\xED\xA0\x80", R"({"t":"\ufffd\ufffd\ufffd"})"}, // surrogate
    };
    for (const Row& row : rows) {
        EXPECT_EQ(JsonObject().add("t", row.text).text(), row.json);
    }
}

TEST(StatusNames, EveryNamedCodeHasItsName) {
    EXPECT_EQ(statusName(KV_S_STREAM_ACTIVE), "KV_S_STREAM_ACTIVE");
    EXPECT_EQ(statusName(KV_E_CONNECTION_FAILED), "KV_E_CONNECTION_FAILED");
    EXPECT_EQ(statusName(static_cast<HRESULT>(0x89998295)), "0x89998295");
    EXPECT_EQ(statusWords(static_cast<HRESULT>(0x89998295)), "the host is unknown");
    EXPECT_EQ(statusWords(static_cast<HRESULT>(0x89991234)), "");
}

} // namespace

} // namespace KorvelVideo::Host
