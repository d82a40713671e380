#include "OutputWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>

#include "TemporaryFolder.h"

namespace KorvelVideo::Host {

namespace {

using testing::HasSubstr;

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
