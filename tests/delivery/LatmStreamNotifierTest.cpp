#include "LatmStreamNotifier.h"

#include <numeric>

#include "NotifierFixture.h"

using namespace KorvelVideo::Network;

namespace {

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

class LatmStreamNotifierTest : public NotifierFixture {
protected:
    // What the host gets for the pieces of one access unit.
    Units deliveredOf(std::vector<Bytes> pieces) {
        m_notifier.notifyReception(unitOver(pieces), 9);
        return m_sink.takeDelivered();
    }

    LatmStreamNotifier m_notifier{&m_sink, nullptr, 0};
};

TEST_F(LatmStreamNotifierTest, EachPieceIsUnwrappedByItsOwnFraming) {
    const Bytes wrong = Bytes{255, 0} + counted(256);
    const Bytes tooShort = Bytes{255, 0} + counted(254);
    const Bytes prefixed{3, 0xAA, 0xBB, 0xCC};
    struct Row {
        const char* name;
        std::vector<Bytes> pieces;
        Bytes payload;
        std::size_t wrongPrefixes = 0; // logged in each of the two passes
    };
    const Row rows[] = {
        {"both", {kLoas, prefixed, kLoas}, kLoasPayload + Bytes{0xAA, 0xBB, 0xCC} + kLoasPayload},
        {"254 bytes", {Bytes{254} + counted(254), {1, 0x77}}, counted(254) + Bytes{0x77}},
        {"255 bytes", {Bytes{255, 0} + counted(255), {1, 0x77}}, counted(255) + Bytes{0x77}},
        {"510 bytes", {Bytes{255, 255, 0} + counted(510)}, counted(510)},
        {"wrong prefix goes out whole", {kLoas, wrong, tooShort}, kLoasPayload + wrong + tooShort, 4},
        {"nothing but prefix", {{255}, Bytes(700, 255)}, Bytes(701, 255), 4},
        {"nearly a syncword", {{0x56, 0xC0, 0x01}}, {0x56, 0xC0, 0x01}, 2},
        {"no pieces", {}, {}},
        {"no payload", {{0}, {0}}, {}},
        {"empty piece", {{}}, {}, 2},
        {"cut within the first layer", {Bytes(kLoas.begin(), kLoas.begin() + 6)}, {}},
        {"syncword only, rest reads as 0", {{0x56, 0xFF}}, {}},
        {"relies on a configuration before", {{0x56, 0xE0, 0x03, 0x81, 0x2A, 0x80}}, {0x55, 0x00}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        forget();
        if (row.payload.empty()) { // will do for no bytes
            m_sink.script.fail("address", 0);
        }
        EXPECT_EQ(deliveredOf(row.pieces), (Units{{row.payload, 9}}));
        EXPECT_EQ(takeCalls().front(), "ProvideAudioSamples(" + std::to_string(row.payload.size()) + ")");
        EXPECT_EQ(RecordingLogger::takeLines(),
                  Lines(row.wrongPrefixes, {3, 4, "Header size calculation for Tarvent is wrong."}));
    }
}

} // namespace
