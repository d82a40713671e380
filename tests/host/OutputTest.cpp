#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>

#include "AdtsHeader.h"
#include "KvResultCodes.h"
#include "MediaPool.h"
#include "OutputWriter.h"
#include "TemporaryFolder.h"

namespace KorvelVideo::Host {

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
    struct Row {
        const char* name;
        Bytes configuration;
        std::size_t payload;
        Bytes header;
    };
    const Row rows[] = {
        {"48 kHz stereo", {0x11, 0x90, 0x56, 0xE5, 0x00}, 132, {0xFF, 0xF1, 0x4C, 0x80, 0x11, 0x7F, 0xFC}},
        {"44.1 kHz mono", {0x12, 0x08, 0x56, 0xE5, 0x00}, 280, {0xFF, 0xF1, 0x50, 0x40, 0x23, 0xFF, 0xFC}},
        {"96 kHz 7.1", {0x10, 0x38, 0x56, 0xE5, 0x00}, 60, {0xFF, 0xF1, 0x41, 0xC0, 0x08, 0x7F, 0xFC}},
        {"8 kHz 4.0", {0x15, 0xA0, 0x56, 0xE5, 0x00}, 583, {0xFF, 0xF1, 0x6D, 0x00, 0x49, 0xDF, 0xFC}},
    };
    for (const Row& row : rows) {
        EXPECT_THAT(*headerFor(row.configuration).frame(row.payload), testing::ElementsAreArray(row.header))
            << row.name;
    }
    EXPECT_TRUE(headerFor({0x11, 0x90}).frame(8184).has_value());
    EXPECT_FALSE(headerFor({0x11, 0x90}).frame(8185).has_value());
}

TEST(AdtsHeader, SaysTheCoreOfSbrAndTheIndexOfAFrequency) {
    // Object type 5, index 6 (24 kHz), 2 channels, extension index 3 (48 kHz), object type 2, frameLengthFlag
    // 0.
    const auto core = *headerFor({0x2B, 0x11, 0x88, 0x00}).frame(100);
    EXPECT_EQ(core[2], 0x40 | 6 << 2);
    EXPECT_EQ(core[3] >> 6, 2);
    // Object type 2, index 15, 48000 in 24 bits, 2 channels.
    EXPECT_EQ((*headerFor({0x17, 0x80, 0x5D, 0xC0, 0x10}).frame(1))[2] >> 2 & 15, 3);
}

TEST(AdtsHeader, WhatDoesNotFit) {
    const std::pair<Bytes, const char*> rows[] = {
        {{}, "without its codec configuration"},
        {{0x11}, "is cut"},
        {{0x17, 0x80, 0x5D}, "is cut"},
        {{0xF8, 0xE6, 0x40, 0x00}, "audio object type 39"},
        {{0x01, 0x90, 0x00}, "audio object type 0"},
        {{0x17, 0x80, 0x5D, 0x40, 0x10}, "sampling frequency"},
        {{0x16, 0x90, 0x00}, "sampling frequency"},
        {{0x11, 0x80}, "channel configuration 0"},
        {{0x11, 0xD8}, "channel configuration 11"},
        {{0x11, 0x94}, "960 samples"},
    };
    for (const auto& [configuration, problem] : rows) {
        EXPECT_THAT(std::get<std::string>(AdtsHeader::fromConfiguration(configuration)), HasSubstr(problem));
    }
}

TEST(MediaPool, LendsWhatWasAskedFor) {
    MediaPool<Surface> pool;
    for (const std::uint32_t size : {0U, 1U, 1024U, 1025U, 65536U, 3'000'000U}) {
        Surface* surface = pool.lend(size);
        SKvLockedSurfaceDescription locked{};
        locked.m_size = sizeof locked;
        ASSERT_EQ(surface->Lock(0, keKvFaceTypeFront, &locked), S_OK);
        EXPECT_EQ(locked.m_bufferCapacity, size);
        std::fill_n(locked.m_buffer, size, std::uint8_t{0x5A});
        const std::uint8_t* const first = locked.m_buffer;
        ASSERT_EQ(surface->Lock(0, keKvFaceTypeFront, &locked), S_OK) << "an access unit may be locked twice";
        EXPECT_EQ(locked.m_buffer, first);
        const std::uint64_t timeStamp = 1ULL << 40U;
        EXPECT_EQ(surface->SetTimeStampInfo(&timeStamp), S_OK);
        EXPECT_EQ(surface->timeStamp(), timeStamp);
        EXPECT_EQ(surface->bytes().size(), size);
        surface->AddRef();
        EXPECT_EQ(surface->Release(), 1U);
        EXPECT_EQ(pool.freeCount(), 0U);
        EXPECT_EQ(surface->Release(), 0U);
        EXPECT_EQ(pool.freeCount(), 1U) << "comes back with its last reference";
    }
}

TEST(MediaPool, KeepsALimitedAmountForLater) {
    struct Row {
        std::uint32_t size;
        std::size_t lent;
        std::size_t kept;
    };
    for (const Row& row :
         {Row{100, 300, MediaPool<Surface>::mostFree}, {65536, 100, 64}, {4'000'000, 10, 2}}) {
        MediaPool<Surface> pool;
        std::vector<Surface*> lent(row.lent);
        for (int again = 0; again < 2; ++again) {
            for (Surface*& surface : lent) {
                surface = pool.lend(row.size);
            }
            for (Surface* surface : lent) {
                surface->Release();
            }
            EXPECT_EQ(pool.freeCount(), row.kept) << row.size;
        }
    }
}

TEST(MediaPool, SamplesCarryTheConfigurationUntilTheyComeBack) {
    Reference<IKvAACCodecConfigDataAccess> configuration;
    ASSERT_EQ(AacConfiguration::create(IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()), S_OK);
    std::uint8_t bytes[] = {0x11, 0x90};
    const SKvCodecConfigData data{sizeof(SKvCodecConfigData), 2, bytes};
    const SKvCodecConfigData wrongSize{15, 0, nullptr};
    EXPECT_EQ(configuration->SetCodecConfigData(nullptr), KV_E_INVALID_POINTER);
    EXPECT_EQ(configuration->SetCodecConfigData(&wrongSize), KV_E_INVALID_PARAMETER);
    EXPECT_EQ(configuration->SetCodecConfigData(&data), S_OK);
    bytes[0] = 0; // they were copied

    MediaPool<AudioSamples> pool;
    AudioSamples* samples = pool.lend(10);
    EXPECT_EQ(samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, configuration.get()), S_OK);
    EXPECT_EQ(samples->configuration()->bytes()[0], 0x11);
    samples->Release();
    samples = pool.lend(10);
    EXPECT_EQ(samples->configuration(), nullptr);
    // Objects of other classes, and under other identifiers, are refused.
    EXPECT_EQ(samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, samples), E_INVALIDARG);
    EXPECT_EQ(samples->AttachCustomObject(IID_IUnknown, configuration.get()), E_NOINTERFACE);
    EXPECT_EQ(samples->configuration(), nullptr);
    samples->Release();
}

class Writer : public testing::Test {
protected:
    void push(OutputFile& file, std::string_view text) {
        Surface* surface = m_pool.lend(static_cast<std::uint32_t>(text.size()));
        SKvLockedSurfaceDescription locked{};
        locked.m_size = sizeof locked;
        surface->Lock(0, keKvFaceTypeFront, &locked);
        std::copy(text.begin(), text.end(), locked.m_buffer);
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
    OutputWriter writer{folder.path(), 500}; // units that may wait for the disk
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

TEST_F(Writer, SaysWhatCannotBeCreated) {
    try {
        OutputWriter("/nonexistent").create("stream1", ".ts", Framing::none);
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("/nonexistent/stream1.ts"));
        EXPECT_EQ(error.code().value(), ENOENT);
    }
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
    EXPECT_EQ(file.lostUnits(), 6U); // the others are queued or being written
    EXPECT_TRUE(writer.hasFailed());
    std::thread drain([reader] { // what the queue holds gets through in the end
        fcntl(reader, F_SETFL, 0);
        std::vector<char> buffer(65536);
        while (read(reader, buffer.data(), buffer.size()) > 0) {
        }
    });
    writer.close();
    drain.join();
    close(reader);
    EXPECT_EQ(file.writtenBytes(), 500 * text.size());
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

TEST_F(Writer, FramesAudio) {
    MediaPool<AudioSamples> pool;
    Reference<IKvAACCodecConfigDataAccess> configuration;
    ASSERT_EQ(AacConfiguration::create(IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()), S_OK);
    const std::uint8_t bytes[] = {0x11, 0x90};
    const SKvCodecConfigData data{sizeof(SKvCodecConfigData), 2, bytes};
    configuration->SetCodecConfigData(&data);
    OutputFile& file = writer.create("audio", ".aac", Framing::adts);
    for (const bool hasConfiguration : {false, true, true}) {
        AudioSamples* samples = pool.lend(2);
        std::uint8_t* buffer = nullptr;
        std::uint32_t length = 0;
        samples->GetBufferAndLength(&buffer, &length);
        std::fill_n(buffer, length, std::uint8_t{'a'});
        if (hasConfiguration) {
            samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, configuration.get());
        }
        writer.push(file, *samples);
        samples->Release();
    }
    writer.close();
    const std::string frame = "\xFF\xF1\x4C\x80\x01\x3F\xFC"
                              "aa";
    EXPECT_EQ(folder.read("audio.aac"), frame + frame);
    EXPECT_EQ(file.lostUnits(), 1U);
    EXPECT_THAT(file.problem(), HasSubstr("without its codec configuration"));
}

} // namespace

} // namespace KorvelVideo::Host
