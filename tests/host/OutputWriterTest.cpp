#include "OutputWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <system_error>

#include "TemporaryFolder.h"

namespace KorvelVideo::Host {

namespace {

using testing::HasSubstr;

Surface* surfaceWith(MediaPool<Surface>& pool, std::string_view text) {
    Surface* surface = pool.lend(static_cast<std::uint32_t>(text.size()));
    SKvLockedSurfaceDescription locked{};
    locked.m_size = sizeof locked;
    surface->Lock(0, keKvFaceTypeFront, &locked);
    std::memcpy(locked.m_buffer, text.data(), text.size());
    return surface;
}

void pushText(OutputWriter& writer, OutputFile& file, MediaPool<Surface>& pool, std::string_view text) {
    Surface* surface = surfaceWith(pool, text);
    writer.push(file, *surface);
    surface->Release();
}

// Puts another file in the place of the one that is open under `path`.
void replaceOpenFile(const std::string& path, int other) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == path) {
            const int descriptor = std::stoi(entry.path().filename().string());
            ASSERT_EQ(dup2(other, descriptor), descriptor);
            return;
        }
    }
    FAIL() << path << " is not open";
}

TEST(OutputWriter, PictureFilesBeginWhereDecodingCan) {
    const TemporaryFolder folder;
    MediaPool<Surface> pool;
    OutputWriter writer(folder.path());
    OutputFile& file = writer.create("picture", ".h264", Framing::annexB);
    using namespace std::literals;
    const std::string_view undecodable[] = {"\0\0\0\1\x41p\0\0\1\x67"sv, "\0\0\1"sv, ""sv, "\0\0\1\x09"sv};
    const std::string_view decodable[] = {"\0\0\0\1\x09\xF0\0\0\1\x67s\0\0\1\x65"sv, "\0\0\1\x41p"sv};
    std::string expected;
    for (const std::string_view unit : undecodable) {
        pushText(writer, file, pool, unit);
    }
    for (const std::string_view unit : decodable) {
        pushText(writer, file, pool, unit);
        expected += unit;
    }
    writer.close();
    EXPECT_EQ(folder.read("picture.h264"), expected);
    EXPECT_EQ(file.lostUnits(), 0U);
}

TEST(OutputWriter, WritesEverythingInOrder) {
    const TemporaryFolder folder;
    MediaPool<Surface> pool;
    OutputWriter writer(folder.path());
    OutputFile& first = writer.create("first", ".ts", Framing::none);
    OutputFile& second = writer.create("second", ".ts", Framing::none);
    std::string all;
    for (std::size_t i = 0; i < 3000; ++i) {
        // Around the size at which a piece is written by itself.
        const std::string text(i % 50 == 0 ? 64 * 1024 - 25 + i / 50 : i % 97,
                               static_cast<char>('a' + i % 26));
        pushText(writer, i % 3 == 0 ? second : first, pool, text);
        if (i % 3 != 0) {
            all += text;
        }
        while (i % 500 == 499 && first.writtenBytes() < all.size()) {
            std::this_thread::yield(); // the writer catches up, so that nothing is left out
        }
    }
    writer.close();
    EXPECT_EQ(folder.read("first.ts"), all);
    EXPECT_EQ(first.writtenBytes(), all.size());
    EXPECT_FALSE(writer.hasFailed());
}

TEST(OutputWriter, NeverOverwrites) {
    const TemporaryFolder folder;
    std::vector<std::string> names;
    for (int i = 0; i < 3; ++i) {
        OutputWriter writer(folder.path());
        names.push_back(writer.create("stream1", ".ts", Framing::none).path().substr(folder.path().size()));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"/stream1.ts", "/stream1-2.ts", "/stream1-3.ts"}));
}

TEST(OutputWriter, SaysWhatCannotBeCreated) {
    OutputWriter writer("/nonexistent");
    try {
        writer.create("stream1", ".ts", Framing::none);
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("/nonexistent/stream1.ts"));
        EXPECT_EQ(error.code().value(), ENOENT);
    }
}

// A disk that does not move: a named pipe whose other end does not read.
TEST(OutputWriter, LeavesOutWholeUnitsWhenTheDiskIsTooSlow) {
    const TemporaryFolder folder;
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    const int standIn = open(pipe.c_str(), O_WRONLY);
    ASSERT_GE(standIn, 0);
    MediaPool<Surface> pool;
    OutputWriter writer(folder.path(), 4);
    OutputFile& file = writer.create("stream1", ".ts", Framing::none);
    replaceOpenFile(file.path(), standIn);

    const std::string text(1U << 20U, 'x'); // more than the pipe takes
    for (int i = 0; i < 10; ++i) {
        pushText(writer, file, pool, text);
    }
    EXPECT_EQ(file.lostUnits(), 6U); // four are queued or being written
    EXPECT_TRUE(writer.hasFailed());
    // What the queue holds gets through in the end.
    std::thread drain([reader] {
        fcntl(reader, F_SETFL, 0);
        std::vector<char> buffer(65536);
        while (read(reader, buffer.data(), buffer.size()) > 0) {
        }
    });
    close(standIn);
    writer.close();
    drain.join();
    close(reader);
    EXPECT_EQ(file.writtenBytes(), 4 * text.size());
}

TEST(OutputWriter, AFullDiskIsAProblemOfThatFileOnly) {
    const TemporaryFolder folder;
    MediaPool<Surface> pool;
    OutputWriter writer(folder.path());
    OutputFile& full = writer.create("full", ".ts", Framing::none);
    const int device = open("/dev/full", O_WRONLY);
    ASSERT_GE(device, 0);
    replaceOpenFile(full.path(), device);
    close(device);
    OutputFile& other = writer.create("other", ".ts", Framing::none);
    pushText(writer, full, pool, "lost");
    while (full.problem().empty()) {
        std::this_thread::yield();
    }
    pushText(writer, full, pool, "lost too");
    pushText(writer, other, pool, "kept");
    writer.close();
    EXPECT_EQ(full.problem(), std::generic_category().message(ENOSPC));
    EXPECT_EQ(full.lostUnits(), 1U);
    EXPECT_EQ(folder.read("other.ts"), "kept");
    EXPECT_TRUE(writer.hasFailed());
}

TEST(OutputWriter, FramesAudio) {
    const TemporaryFolder folder;
    MediaPool<AudioSamples> pool;
    Reference<IKvAACCodecConfigDataAccess> configuration;
    ASSERT_EQ(AacConfiguration::create(IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()), S_OK);
    const std::uint8_t bytes[] = {0x11, 0x90};
    const SKvCodecConfigData data{sizeof(SKvCodecConfigData), 2, bytes};
    configuration->SetCodecConfigData(&data);
    OutputWriter writer(folder.path());
    OutputFile& file = writer.create("audio", ".aac", Framing::adts);
    for (const bool hasConfiguration : {false, true, true}) {
        AudioSamples* samples = pool.lend(2);
        std::uint8_t* buffer = nullptr;
        std::uint32_t length = 0;
        samples->GetBufferAndLength(&buffer, &length);
        buffer[0] = 'a';
        buffer[1] = 'b';
        if (hasConfiguration) {
            samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, configuration.get());
        }
        writer.push(file, *samples);
        samples->Release();
    }
    writer.close();
    const std::string frame = {'\xFF', '\xF1', '\x4C', '\x80', '\x01', '\x3F', '\xFC', 'a', 'b'};
    EXPECT_EQ(folder.read("audio.aac"), frame + frame);
    EXPECT_EQ(file.lostUnits(), 1U);
    EXPECT_THAT(file.problem(), HasSubstr("without its codec configuration"));
}

} // namespace

} // namespace KorvelVideo::Host
