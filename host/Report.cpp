#include "Report.h"

#include <cstdio>
#include <cstdlib>

#include "Json.h"
#include "StatusNames.h"

namespace KorvelVideo::Host {

namespace {

constexpr std::uint32_t schemaVersion = 1;

template <class... Arguments>
std::string format(const char* pattern, Arguments... arguments) {
    char text[256];
    std::snprintf(text, sizeof text, pattern, arguments...);
    return text;
}

// Decimal units, as networks and disks use them.
std::string scaled(double value, const char* unit) {
    constexpr const char* prefixes[] = {"", "k", "M", "G", "T"};
    std::size_t prefix = 0;
    while (value >= 1000 && prefix + 1 < std::size(prefixes)) {
        value /= 1000;
        ++prefix;
    }
    return format(prefix == 0 ? "%.0f %s%s" : "%.2f %s%s", value, prefixes[prefix], unit);
}

void appendCount(std::string& text, std::uint64_t count, const char* what) {
    if (count != 0) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
    }
}

std::string lossText(const Loss& loss) {
    std::string text;
    appendCount(text, loss.systemDrops, "dropped by the system");
    appendCount(text, loss.rtpLost, "RTP packets lost");
    appendCount(text, loss.damaged, "damaged");
    appendCount(text, loss.unbufferedBytes, "bytes without buffer");
    appendCount(text, loss.continuityErrors, "TS continuity errors");
    return text.empty() ? "no loss" : "loss: " + text;
}

std::string fileText(const StreamReport& report) {
    if (report.fileLostUnits == 0 && report.fileProblem.empty()) {
        return {};
    }
    return "  NOT WHOLE: " + std::to_string(report.fileLostUnits) + " " + unitsName(report.description) +
           " missing (" + (report.fileProblem.empty() ? "the disk is too slow" : report.fileProblem) + ")";
}

JsonObject start(const char* type, Seconds time) {
    JsonObject object;
    object.add("schema_version", schemaVersion).add("type", type).add("time_seconds", time.count());
    return object;
}

const char* mediaKey(const StreamDescription& description) {
    switch (description.type) {
    case keKvStreamTypeH264:
        return "h264";
    case keKvStreamTypeAac:
        return "aac";
    case keKvStreamTypeTransportStream:
        break;
    }
    return "mpeg2_ts";
}

void addName(JsonObject& object, const char* key, const std::string& name) {
    if (name.empty()) {
        object.addNull(key);
    } else {
        object.add(key, name);
    }
}

void addVideo(JsonObject& object, const StreamDescription& description) {
    const SKvVideoFormatDescription& format = description.format;
    object.add("width_samples", format.m_width)
        .add("height_lines", format.m_height)
        .add("depth_bits", format.m_bitDepth);
    addName(object, "scan", scanName(format.m_scanMode));
    if (const std::string rate = frameRateName(format.m_frameRate); !rate.empty()) {
        object.add("frames_per_second", std::atof(rate.c_str()));
    } else {
        object.addNull("frames_per_second");
    }
    addName(object, "display_aspect_ratio", aspectRatioName(format.m_aspectRatio));
    addName(object, "colour", colourName(description.colourClass));
    object.add("profile_idc", description.profile).add("level_idc", description.level);
}

void addTotals(JsonObject& object, const StreamReport& report) {
    object.add("stream", report.stream)
        .add("source", report.source)
        .add("media", mediaKey(report.description))
        .add("bitrate_bits_per_second", static_cast<std::uint64_t>(report.bitrate))
        .add("received_bytes", report.bytes)
        .add("received_units", report.units)
        .add("last_time_stamp_100ns", report.timeStamp);
    if (report.age) {
        object.add("last_unit_age_seconds", report.age->count());
    } else {
        object.addNull("last_unit_age_seconds");
    }
    if (report.loss) {
        object.add("source_system_drops_datagrams", report.loss->systemDrops)
            .add("source_rtp_lost_packets", report.loss->rtpLost)
            .add("source_damaged_packets", report.loss->damaged)
            .add("source_unbuffered_bytes", report.loss->unbufferedBytes)
            .add("source_ts_continuity_errors", report.loss->continuityErrors);
    }
    if (!report.file.empty()) {
        object.add("file", report.file)
            .add("file_bytes", report.fileBytes)
            .add("file_lost_units", report.fileLostUnits);
        addName(object, "file_problem", report.fileProblem);
    }
}

} // namespace

std::string announcementText(const StreamReport& report, const std::string& url) {
    std::string text = "Stream " + std::to_string(report.stream) + ": " + inWords(report.description) +
                       " from " + withoutPassword(url);
    if (!report.file.empty()) {
        text += " -> " + report.file;
    }
    return text;
}

std::string statusText(std::uint32_t stream, HRESULT code) {
    std::string text = "Stream " + std::to_string(stream) + ": " + statusName(code);
    if (const std::string_view words = statusWords(code); !words.empty()) {
        text += " (" + std::string(words) + ")";
    }
    return text;
}

std::string statisticsText(const StreamReport& report) {
    std::string text = format("Stream %u  %-5s  %11s  %9llu %s  ", report.stream,
                              mediaName(report.description).c_str(), scaled(report.bitrate, "b/s").c_str(),
                              static_cast<unsigned long long>(report.units), unitsName(report.description));
    text += report.age ? format("last %.2f s ago", report.age->count()) : "nothing yet";
    if (report.loss) {
        text += "  " + lossText(*report.loss);
    }
    return text + fileText(report);
}

std::string summaryText(const StreamReport& report, Seconds duration) {
    std::string text = "Stream " + std::to_string(report.stream) + ": " + inWords(report.description) + ": " +
                       std::to_string(report.units) + " " + unitsName(report.description) + ", " +
                       scaled(static_cast<double>(report.bytes), "B") +
                       format(" in %.1f s", duration.count());
    if (report.loss) {
        text += ", " + lossText(*report.loss);
    }
    if (!report.file.empty()) {
        text += ", " + report.file + " " + scaled(static_cast<double>(report.fileBytes), "B");
    }
    return text + fileText(report);
}

std::string announcementJson(Seconds time, const StreamReport& report, const std::string& url) {
    JsonObject object = start("stream", time);
    object.add("stream", report.stream)
        .add("source", report.source)
        .add("url", withoutPassword(url))
        .add("media", mediaKey(report.description))
        .add("description", inWords(report.description));
    if (report.description.type == keKvStreamTypeH264) {
        addVideo(object, report.description);
    } else if (report.description.type == keKvStreamTypeAac) {
        object.add("sampling_rate_hertz", report.description.samplingRate)
            .add("channels", report.description.channels);
    }
    if (!report.file.empty()) {
        object.add("file", report.file);
    }
    return object.text();
}

std::string statusJson(Seconds time, std::uint32_t stream, HRESULT code) {
    return start("status", time)
        .add("stream", stream)
        .add("code", hexadecimal(code))
        .add("name", statusName(code))
        .add("words", statusWords(code))
        .add("is_failure", FAILED(code))
        .text();
}

std::string statisticsJson(Seconds time, const StreamReport& report) {
    JsonObject object = start("statistics", time);
    addTotals(object, report);
    return object.text();
}

std::string summaryJson(Seconds time, const StreamReport& report, Seconds duration) {
    JsonObject object = start("summary", time);
    addTotals(object, report);
    object.add("reception_seconds", duration.count());
    return object.text();
}

std::string endJson(Seconds time, int exitCode) {
    return start("end", time).add("exit_code", static_cast<std::uint32_t>(exitCode)).text();
}

} // namespace KorvelVideo::Host
