#include <gtest/gtest.h>

#include "Json.h"
#include "KvResultCodes.h"
#include "Report.h"

using namespace KorvelVideo::Host;

namespace {

TEST(Report, ForPeopleAndPrograms) {
    StreamReport videoReport;
    StreamReport transport;
    videoReport.stream = 1;
    videoReport.source = 2;
    videoReport.description.type = keKvStreamTypeH264;
    videoReport.description.format = {
        28, 4096, 2160, 10, keKvAspectRatio256x135, keKvFrameRate59_94, keKvScanModeProgressive};
    videoReport.description.colourClass = keKvColourClassBt2020Hlg;
    videoReport.description.profile = 122;
    videoReport.description.level = 52;
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
    EXPECT_EQ(
        statisticsText(transport),
        "Stream 3  TS           0 b/s          0 buffers  nothing yet  loss: 7 dropped by the system, 2 TS "
        "continuity errors  NOT WHOLE: 4 buffers missing (the disk is too slow)");
    EXPECT_EQ(
        announcementJson(Seconds(0.5), videoReport, "rtsp://u:p@h/x"),
        R"({"schema_version":1,"type":"stream","time_seconds":0.500,"stream":1,"source":2,)"
        R"("url":"rtsp://u:***@h/x","media":"h264",)"
        R"("description":"H.264 4096x2160 progressive 59.94 fps 256:135 BT.2020 HLG 10 bit High 4:2:2@5.2","width_samples":4096,)"
        R"("height_lines":2160,"depth_bits":10,"scan":"progressive","frames_per_second":59.940,)"
        R"("display_aspect_ratio":"256:135","colour":"BT.2020 HLG","profile_idc":122,"level_idc":52})");
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
}

TEST(Json, TextsAreEscaped) { // the last three: cut, overlong, surrogate
    const std::pair<const char*, std::string> rows[] = {
        {"a\"b\\c\n\x7F", R"(a\"b\\c\u000a\u007f)"},
        {"Zürich € \xF0\x9F\x8E\xA5", "Zürich € \xF0\x9F\x8E\xA5"},
        {"\xC3", R"(\ufffd)"},
        {"\xC0\xAF", R"(\ufffd\ufffd)"},
        {"\xED\xA0\x80", R"(\ufffd\ufffd\ufffd)"}};
    for (const auto& [text, json] : rows) {
        EXPECT_EQ(JsonObject().add("t", text).text(), "{\"t\":\"" + json + "\"}");
    }
}

} // namespace
