#include "LatmStreamNotifier.h"

#include <memory>
#include <numeric>
#include <stdexcept>

#include "AudioNotifierFixture.h"
#include "TestData.h"

using namespace KorvelVideo::Network;
using namespace KvTest;

namespace {

const LogLine kWrongPrefix{3, 4, "Header size calculation for Tarvent is wrong."};

// 4 bytes of payload: 11 22 33 44.
const Bytes kLoas{0x56, 0xE0, 0x0B, 0x20, 0x00, 0x11, 0x90, 0x1F, 0xE0, 0x20, 0x89, 0x11, 0x9A, 0x20};
const Bytes kLoasPayload{0x11, 0x22, 0x33, 0x44};

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes counted(std::size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return bytes;
}

// The pieces, each in an allocation of its own size, so that no read beyond one goes unseen.
class Pieces {
public:
    explicit Pieces(const std::vector<Bytes>& pieces) {
        for (const Bytes& piece : pieces) {
            m_storage.push_back(std::make_unique<std::uint8_t[]>(piece.size()));
            std::copy(piece.begin(), piece.end(), m_storage.back().get());
            m_unit.emplace_back(m_storage.back().get(), static_cast<std::uint32_t>(piece.size()));
        }
    }
    [[nodiscard]] const AccessUnit& unit() const { return m_unit; }

private:
    std::vector<std::unique_ptr<std::uint8_t[]>> m_storage;
    AccessUnit m_unit;
};

Calls deliveryOf(std::size_t size, const std::string& name = "samples1") {
    return {"ProvideAudioSamples(" + std::to_string(size) + ")",
            name + ".GetBufferAndLength()",
            name + ".SetTimeStampInfo(9)",
            name + ".AttachCustomObject(IKvAACCodecConfigDataAccess, config1)",
            name + ".SignalWriteCompletion()",
            "DeliverAudioSamples(" + name + ")",
            name + " ended"};
}

class LatmStreamNotifierTest : public AudioNotifierFixture {};

TEST_F(LatmStreamNotifierTest, ConstructionAndDestruction) {
    expectConstructionAndDestruction<LatmStreamNotifier>(m_sink, "LatmStreamNotifier");
}

TEST_F(LatmStreamNotifierTest, LengthPrefixes) {
    struct Row {
        const char* name;
        Bytes piece;
        std::int32_t size;
        bool logged;
    };
    const Row rows[] = {
        {"three bytes", {3, 0xAA, 0xBB, 0xCC}, 3, false},
        {"no payload", {0}, 0, false},
        {"254 bytes", Bytes{254} + counted(254), 254, false},
        {"255 bytes", Bytes{255, 0} + counted(255), 255, false},
        {"one byte more than announced", Bytes{255, 0} + counted(256), 258, true},
        {"one byte less than announced", Bytes{255, 0} + counted(254), 256, true},
        {"510 bytes", Bytes{255, 255, 0} + counted(510), 510, false},
        {"empty", {}, 0, true},
        {"255 only", {255}, 1, true},
        {"255 to the end", Bytes(700, 255), 700, true},
        {"no prefix at all", {0x21, 0x10, 0x05}, 3, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingLogger::clear();
        const Pieces pieces({row.piece});
        EXPECT_EQ(getTarventBufferSizeFromHeader(pieces.unit()[0].first, pieces.unit()[0].second), row.size);
        EXPECT_EQ(RecordingLogger::takeLines(true), row.logged ? Lines{kWrongPrefix} : Lines{});
    }
}

TEST_F(LatmStreamNotifierTest, EachPieceIsUnwrappedByItsOwnFraming) {
    const Bytes wrong = Bytes{0xFF, 0x00} + counted(256);
    struct Row {
        const char* name;
        std::vector<Bytes> pieces;
        Bytes payload;
        int wrongPrefixes; // pieces whose prefix does not fit; logged in each pass
    };
    const Row rows[] = {
        {"LOAS", {kLoas}, kLoasPayload, 0},
        {"length prefix", {{3, 0xAA, 0xBB, 0xCC}}, {0xAA, 0xBB, 0xCC}, 0},
        {"both",
         {kLoas, {3, 0xAA, 0xBB, 0xCC}, kLoas},
         kLoasPayload + Bytes{0xAA, 0xBB, 0xCC} + kLoasPayload,
         0},
        {"long prefix", {Bytes{0xFF, 0x00} + counted(255), {1, 0x77}}, counted(255) + Bytes{0x77}, 0},
        {"wrong prefix goes out whole", {kLoas, wrong, kLoas}, kLoasPayload + wrong + kLoasPayload, 1},
        {"nearly a syncword", {{0x56, 0xC0, 0x01}}, {0x56, 0xC0, 0x01}, 1},
        {"no pieces", {}, {}, 0},
        {"no payload", {{0}, {0}}, {}, 0},
        {"empty piece", {{}}, {}, 1},
        {"cut within the first layer", {Bytes(kLoas.begin(), kLoas.begin() + 6)}, {}, 0},
        {"syncword only, rest reads as 0", {{0x56, 0xFF}}, {}, 0},
        {"frame that relies on a configuration before",
         {{0x56, 0xE0, 0x03, 0x81, 0x2A, 0x80}},
         {0x55, 0x00},
         0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LatmStreamNotifier notifier(&m_sink, nullptr, 0);
        forget();
        notifier.notifyReception(Pieces(row.pieces).unit(), 9);
        const auto delivered = m_sink.takeDelivered();
        ASSERT_EQ(delivered.size(), 1U);
        EXPECT_EQ(delivered[0], (DeliveredUnit{row.payload, 9}));
        EXPECT_EQ(CallLog::instance().take().front(),
                  "ProvideAudioSamples(" + std::to_string(row.payload.size()) + ")");
        EXPECT_EQ(RecordingLogger::takeLines(true),
                  Lines(static_cast<std::size_t>(2 * row.wrongPrefixes), kWrongPrefix));
        EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
    }
}

TEST_F(LatmStreamNotifierTest, TheHostSeesOneFixedSequence) {
    LatmStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    const Pieces pieces({kLoas, {2, 8, 9}});
    notifier.notifyReception(pieces.unit(), 9);
    EXPECT_EQ(CallLog::instance().take(), deliveryOf(6));
    notifier.notifyReception({}, 9);
    EXPECT_EQ(CallLog::instance().take(), deliveryOf(0, "samples2")) << "0 bytes are delivered too";
    EXPECT_EQ(RecordingCodecConfiguration::references(), 1) << "attached buffers gave theirs back";
}

TEST_F(LatmStreamNotifierTest, EachFailureLosesOnlyItsOwnAccessUnit) {
    const Pieces pieces({kLoas});
    const Calls refused{"ProvideAudioSamples(4)", "samples1.GetBufferAndLength()", "samples1 ended"};
    const char* const file = "src/LatmStreamNotifier";
    expectFailuresToLoseOneAccessUnit<LatmStreamNotifier>(failuresToLend("4", refused), pieces.unit(), file);
    expectFailuresToLoseOneAccessUnit<LatmStreamNotifier>(
        failuresIgnored(
            {"SetTimeStampInfo", "AttachCustomObject", "SignalWriteCompletion", "DeliverAudioSamples"},
            deliveryOf(4)),
        pieces.unit(), file);
}

TEST_F(LatmStreamNotifierTest, ABufferWithoutAddressWillDoForNoPayload) {
    LatmStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    m_sink.script.setLendNoAddress(true);
    const Pieces pieces({{0}, {0x56, 0xFF}});
    notifier.notifyReception(pieces.unit(), 9);
    EXPECT_EQ(CallLog::instance().take(), deliveryOf(0));
}

// Whatever the bytes, the host is asked for what is then written, and nothing is written beyond it.
TEST_F(LatmStreamNotifierTest, SizingAndExtractionAgreeOnFramesCutAndDamaged) {
    LatmStreamNotifier notifier(&m_sink, nullptr, 0);
    const Bytes frame = splitLoasFrames(readBytes("loas/lc-48000-stereo-64k.loas")).front();
    std::uint32_t seed = 1;
    for (std::size_t round = 0; round < 400; ++round) {
        Bytes damaged(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(1 + round % frame.size()));
        for (std::size_t flips = round % 4; flips > 0; --flips) {
            seed = seed * 1664525 + 1013904223;
            damaged[(2 + (seed >> 8) % 30) % damaged.size()] ^= static_cast<std::uint8_t>(seed >> 24);
        }
        const Pieces pieces({damaged, {2, 0xAB, 0xCD}});
        forget();
        notifier.notifyReception(pieces.unit(), 9);
        const auto delivered = m_sink.takeDelivered();
        ASSERT_EQ(delivered.size(), 1U);
        ASSERT_GE(delivered[0].bytes.size(), 2U);
        EXPECT_EQ(Bytes(delivered[0].bytes.end() - 2, delivered[0].bytes.end()), (Bytes{0xAB, 0xCD}))
            << "the piece behind stands where the sizes said, round " << round;
    }
}

TEST_F(LatmStreamNotifierTest, RealFramesGiveTheEncodersAccessUnits) {
    for (const std::string& name : listCases("loas", ".loas")) {
        SCOPED_TRACE(name);
        const std::vector<Bytes> frames = splitLoasFrames(readBytes("loas/" + name + ".loas"));
        const Bytes encoded = readBytes("loas/" + name + ".aac");
        const auto expected = readExpected("loas/" + name + ".expected");
        LatmStreamNotifier notifier(&m_sink, nullptr, 0);
        auto at = encoded.begin();
        auto size = expected.lower_bound("size");
        for (const Bytes& frame : frames) {
            const auto end = at + std::stol((size++)->second);
            notifier.notifyReception(Pieces({frame}).unit(), 7);
            EXPECT_EQ(m_sink.takeDelivered(), (std::vector<DeliveredUnit>{{{at, end}, 7}}));
            at = end;
        }
        // All of them as the pieces of one access unit.
        notifier.notifyReception(Pieces(frames).unit(), 8);
        EXPECT_EQ(m_sink.takeDelivered(), (std::vector<DeliveredUnit>{{encoded, 8}}));
    }
}

TEST_F(LatmStreamNotifierTest, ASumBeyond32BitsIsRefusedBeforeTheHostIsAsked) {
    LatmStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    // The prefix is wrong for both lengths, so each piece counts whole; of the first, one byte is read.
    std::uint8_t bytes[9] = {1};
    notifier.notifyReception({{bytes, 0xFFFFFFFF}, {bytes, 9}}, 1);
    EXPECT_EQ(CallLog::instance().take(), Calls{});
    const auto exceptions = RecordingLogger::takeExceptions();
    ASSERT_EQ(exceptions.size(), 1U);
    EXPECT_EQ(exceptions[0].m_result, KV_E_BUFFER_SIZE_TOO_SMALL);
}

TEST_F(LatmStreamNotifierTest, OtherExceptionsOfTheHostPassAndLoseNoBuffer) {
    LatmStreamNotifier notifier(&m_sink, nullptr, 0);
    m_sink.onCall = [](const std::string& call) {
        if (call == "GetBufferAndLength") {
            throw std::runtime_error("host");
        }
    };
    EXPECT_THROW(notifier.notifyReception({}, 1), std::runtime_error);
    EXPECT_EQ(m_sink.liveBuffers(), 0);
}

TEST_F(LatmStreamNotifierTest, StatusAndItsAnswerPassThrough) {
    LatmStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    m_sink.script.fail("NotifyStatus", kvResult(0x80001234));
    EXPECT_EQ(notifier.notifyStatus(KV_S_STREAM_ACTIVE), kvResult(0x80001234));
    EXPECT_EQ(CallLog::instance().take(), Calls{"NotifyStatus(0x0999202E)"});
}

} // namespace
