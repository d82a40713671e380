#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>
#include <tuple>

#include "AdtsHeader.h"
#include "MediaPool.h"
#include "OutputWriter.h"
#include "TemporaryFolder.h"

using namespace KorvelVideo::Host;

namespace {

using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

AdtsHeader headerFor(const Bytes& configuration) {
    return std::get<AdtsHeader>(AdtsHeader::fromConfiguration(configuration));
}

// Configuration from the .m4a and first header from the .aac that ffmpeg 5.1 made of one encoding:
//     ffmpeg -f lavfi -i sine=r=RATE:d=0.2 -ac CHANNELS -ar RATE -c:a aac -b:a 64k t.m4a
//     ffmpeg -i t.m4a -c copy t.aac
TEST(AdtsHeader, IsWhatAnotherMuxerWrites) {
    const std::tuple<const char*, Bytes, std::size_t, Bytes> rows[] = {
        {"48 kHz stereo", {0x11, 0x90, 0x56, 0xE5, 0x00}, 132, {0xFF, 0xF1, 0x4C, 0x80, 0x11, 0x7F, 0xFC}},
        {"44.1 kHz mono", {0x12, 0x08, 0x56, 0xE5, 0x00}, 280, {0xFF, 0xF1, 0x50, 0x40, 0x23, 0xFF, 0xFC}},
        {"96 kHz 7.1", {0x10, 0x38, 0x56, 0xE5, 0x00}, 60, {0xFF, 0xF1, 0x41, 0xC0, 0x08, 0x7F, 0xFC}},
        {"8 kHz 4.0", {0x15, 0xA0, 0x56, 0xE5, 0x00}, 583, {0xFF, 0xF1, 0x6D, 0x00, 0x49, 0xDF, 0xFC}},
        {"core of SBR", {0x2B, 0x11, 0x88, 0x00}, 132, {0xFF, 0xF1, 0x58, 0x80, 0x11, 0x7F, 0xFC}},
        {"48000 in 24 bits", {0x17, 0x80, 0x5D, 0xC0, 0x10}, 132, {0xFF, 0xF1, 0x4C, 0x80, 0x11, 0x7F, 0xFC}},
    };
    for (const auto& [name, configuration, payload, header] : rows) {
        EXPECT_THAT(*headerFor(configuration).frame(payload), testing::ElementsAreArray(header)) << name;
    }
    EXPECT_TRUE(headerFor({0x11, 0x90}).frame(8184).has_value());
    EXPECT_FALSE(headerFor({0x11, 0x90}).frame(8185).has_value());
}

TEST(AdtsHeader, WhatDoesNotFit) {
    const std::pair<Bytes, const char*> rows[] = {
        {{}, "without its codec configuration"},     {{0x17, 0x80, 0x5D}, "is cut"},
        {{0x01, 0x90, 0x00}, "audio object type 0"}, {{0x17, 0x80, 0x5D, 0x40, 0x10}, "sampling frequency"},
        {{0x11, 0xD8}, "channel configuration 11"},  {{0x11, 0x94}, "960 samples"},
    };
    for (const auto& [configuration, problem] : rows) {
        EXPECT_THAT(std::get<std::string>(AdtsHeader::fromConfiguration(configuration)), HasSubstr(problem));
    }
}

void fill(Surface& surface, std::string_view text) {
    SKvLockedSurfaceDescription locked{};
    locked.m_size = sizeof locked;
    ASSERT_EQ(surface.Lock(0, keKvFaceTypeFront, &locked), S_OK);
    ASSERT_EQ(locked.m_bufferCapacity, text.size());
    std::copy(text.begin(), text.end(), locked.m_buffer);
}

TEST(MediaPool, LendsWhatWasAskedForAndKeepsALimitedAmount) {
    const std::uint32_t rows[][3] = {
        {0, 3, 3}, {100, 300, 256}, {1025, 1, 1}, {65536, 100, 64}, {4'000'000, 10, 2}};
    for (const auto& [size, count, kept] : rows) {
        MediaPool<Surface> pool;
        std::vector<Surface*> lent(count);
        for (int again = 0; again < 2; ++again) {
            for (Surface*& surface : lent) {
                surface = pool.lend(size);
                fill(*surface, std::string(size, 'x'));
                surface->AddRef();
            }
            for (Surface* surface : lent) {
                EXPECT_EQ(surface->Release(), 1U);
                EXPECT_EQ(surface->bytes().size(), size);
            }
            EXPECT_EQ(pool.freeCount(), 0U) << "they come back with the last reference";
            std::for_each(lent.begin(), lent.end(), [](Surface* surface) { surface->Release(); });
            EXPECT_EQ(pool.freeCount(), kept) << size;
        }
    }
}

TEST(MediaPool, SamplesCarryTheConfigurationUntilTheyComeBack) {
    Reference<IKvAACCodecConfigDataAccess> configuration;
    ASSERT_EQ(AacConfiguration::create(IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()), S_OK);
    std::uint8_t bytes[] = {0x11, 0x90};
    const SKvCodecConfigData data{sizeof data, 2, bytes};
    EXPECT_EQ(configuration->SetCodecConfigData(&data), S_OK);
    bytes[0] = 0; // they were copied
    MediaPool<AudioSamples> pool;
    AudioSamples* samples = pool.lend(10);
    EXPECT_EQ(samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, configuration.get()), S_OK);
    EXPECT_EQ(samples->configuration()->bytes()[0], 0x11);
    const TemporaryFolder folder;
    OutputWriter writer(folder.path(), 1);
    OutputFile& file = writer.create("audio", ".aac", Framing::adts);
    std::uint8_t* buffer = nullptr;
    std::uint32_t length = 0;
    samples->GetBufferAndLength(&buffer, &length);
    std::fill_n(buffer, length, std::uint8_t{'a'});
    writer.push(file, *samples);
    writer.close();
    EXPECT_EQ(folder.read("audio.aac"), "\xFF\xF1\x4C\x80\x02\x3F\xFC" + std::string(10, 'a'));
    samples->Release();
    samples = pool.lend(10);
    EXPECT_EQ(samples->configuration(), nullptr);
    // Objects of other classes, and under other identifiers, are refused.
    EXPECT_EQ(samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, samples), E_INVALIDARG);
    EXPECT_EQ(samples->AttachCustomObject(IID_IUnknown, configuration.get()), E_NOINTERFACE);
    samples->Release();
}

class Writer : public testing::Test {
protected:
    void push(OutputFile& file, std::string_view text) {
        Surface* surface = m_pool.lend(static_cast<std::uint32_t>(text.size()));
        fill(*surface, text);
        writer.push(file, *surface);
        surface->Release();
    }

    // Puts another file in the place of the one that is open under `path`.
    static void replaceOpenFile(const std::string& path, const char* other) {
        const int opened = open(other, O_WRONLY);
        ASSERT_GE(opened, 0);
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            if (std::filesystem::read_symlink(entry.path(), ignored) == path) {
                dup2(opened, std::stoi(entry.path().filename().string()));
            }
        }
        close(opened);
    }

    const TemporaryFolder folder;

private:
    MediaPool<Surface> m_pool;

protected:
    OutputWriter writer{folder.path(), 500, 50'000'000}; // units and bytes that may wait for the disk
};

TEST_F(Writer, WritesEverythingInOrderAndNeverOverAnotherFile) {
    OutputFile& first = writer.create("stream1", ".ts", Framing::none);
    OutputFile& second = writer.create("stream1", ".ts", Framing::none);
    std::string all;
    for (std::size_t i = 0; i < 3000; ++i) {
        // Around the size at which a piece is written by itself.
        const std::string text(i % 50 == 0 ? 64 * 1024 - 25 + i / 50 : i % 97,
                               static_cast<char>('a' + i % 26));
        push(i % 3 == 0 ? second : first, text);
        all += i % 3 == 0 ? "" : text;
        while (i % 400 == 399 && first.writtenBytes() < all.size()) {
            std::this_thread::yield(); // the writer catches up, so that nothing is left out
        }
    }
    writer.close();
    EXPECT_EQ(folder.read("stream1.ts"), all);
    EXPECT_EQ(folder.read("stream1-2.ts").size(), second.writtenBytes());
    EXPECT_FALSE(writer.hasFailed());
}

TEST_F(Writer, PictureFilesBeginWhereDecodingCan) {
    using namespace std::literals;
    OutputFile& file = writer.create("picture", ".h264", Framing::annexB);
    for (const std::string_view unit : {"\0\0\0\1\x41p\0\0\1\x67"sv, "\0\0\1"sv, ""sv, "\0\0\1\x09"sv}) {
        push(file, unit);
    }
    const std::string first = "\0\0\0\1\x09\xF0\0\0\1\x67s\0\0\1\x65"s;
    const std::string second = "\0\0\1\x41p"s;
    push(file, first);
    push(file, second);
    writer.close();
    EXPECT_EQ(folder.read("picture.h264"), first + second);
    EXPECT_EQ(file.lostUnits(), 0U);
}

// A disk that does not move: a named pipe whose other end does not read.
TEST_F(Writer, LeavesOutWholeUnitsWhenTheDiskIsTooSlow) {
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    OutputFile& file = writer.create("stream1", ".ts", Framing::none);
    replaceOpenFile(file.path(), pipe.c_str());
    const std::string text(100'000, 'x'); // more than the pipe takes
    for (int i = 0; i < 506; ++i) {
        push(file, text);
    }
    EXPECT_TRUE(writer.hasFailed());
    std::thread drain([reader] { // what the queue holds gets through in the end
        fcntl(reader, F_SETFL, 0);
        std::vector<char> buffer(65536);
        while (read(reader, buffer.data(), buffer.size()) > 0) {
        }
    });
    while (file.writtenBytes() < 500 * text.size()) {
        std::this_thread::yield();
    }
    push(file, text); // there is room again
    writer.close();
    drain.join();
    close(reader);
    EXPECT_EQ(file.lostUnits(), 6U);
    EXPECT_EQ(file.writtenBytes(), 501 * text.size());
}

TEST_F(Writer, AFullDiskIsAProblemOfThatFileOnly) {
    OutputFile& full = writer.create("full", ".ts", Framing::none);
    replaceOpenFile(full.path(), "/dev/full");
    OutputFile& other = writer.create("other", ".ts", Framing::none);
    push(full, "lost");
    while (full.problem().empty()) {
        std::this_thread::yield();
    }
    push(full, "lost too");
    push(other, "kept");
    writer.close();
    EXPECT_EQ(full.problem(), std::generic_category().message(ENOSPC));
    EXPECT_EQ(full.lostUnits(), 1U);
    EXPECT_EQ(folder.read("other.ts"), "kept");
    EXPECT_TRUE(writer.hasFailed());
}

} // namespace
