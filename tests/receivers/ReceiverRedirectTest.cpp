#include "ReceiverFixture.h"

namespace {

struct RedirectCase {
    const char* name;
    const ReceiverKind& kind;
    const char* url; // null: a null URL
    const char* failingCall;
    std::uint32_t status;
    std::uint32_t raised;
    const char* expression;
};

const char* const kInit = "m_client->Init(url, networkInterfaceCard)";
const char* const kSetParameter = "m_client->SetParameter(parameterType, value, valueSize)";

const RedirectCase kRedirects[] = {
    {"null URL", kRtsp, nullptr, "", 0, 0x89998045, "KV_E_INVALID_POINTER"},
    {"null RTP URL", kRtp, nullptr, "", 0, 0x89998044, "KV_E_INVALID_PARAMETER"},
    {"unknown protocol", kRtsp, "http://b", "", 0, 0x89998044, "KV_E_INVALID_PARAMETER"},
    {"other protocol", kRtsp, "rtmp://b", "", 0, 0x89998279, "KV_E_INVALID_PROTOCOL"},
    {"no client", kRtsp, "rtsp://b", "CreateNetworkClient", 1, 0x89998290, "KV_E_CONNECTION_FAILED"},
    {"not opened", kTsOverUdp, "udp://b", "Init", 7, 0x89998292, kInit},
    {"not opened as RTP", kRtp, "rtp://b", "Init", 11, 0x89998296, kInit},
    {"parameter refused", kRtsp, "rtsp://b", "SetParameter", 2, 0x89998044, kSetParameter},
    {"client option refused", kRtmp, "rtmp://b", "SetParameter", 2, 0x89998044, kSetParameter},
};

class ReceiverRedirect : public ReceiverFixture {};

TEST_F(ReceiverRedirect, AFailureRaisesStopsAndCanBeRepeated) {
    for (const RedirectCase& row : kRedirects) {
        SCOPED_TRACE(row.name);
        restart();
        createAndStart(row.kind);
        ScriptedSdk::failCall(row.failingCall, row.status);
        try {
            receiver->Redirect(row.url);
            ADD_FAILURE() << "nothing was raised";
        } catch (const CKvVaneException& exception) {
            EXPECT_EQ(exception.m_result, kvResult(row.raised));
            EXPECT_STREQ(exception.m_expression, row.expression);
            EXPECT_STREQ(exception.m_sourceFile, "src/BaseReceiver");
        }
        EXPECT_EQ(takeText(), readSection("receivers/redirects.txt", row.name));
        EXPECT_EQ(receiver->Stop(), S_OK); // it is stopped already
        EXPECT_EQ(receiver->Start(), KV_E_DISCONNECTED);
        EXPECT_EQ(receiver->Redirect(row.kind.otherUrl), S_OK);
        EXPECT_EQ(receiver->Stop(), S_OK);
        release();
    }
}

// Of its stop the result is ignored.
TEST_F(ReceiverRedirect, ReturnsTheResultOfTheStart) {
    for (const ReceiverKind& kind : kReceiverKinds) {
        createAndForget(kind);
        ScriptedSdk::failCall("Stop", 8);
        ScriptedSdk::failCall("Play", 20);
        EXPECT_EQ(receiver->Redirect(kind.otherUrl), kvResult(0x89998291)) << kind;
        EXPECT_EQ(receiver->Start(), S_OK) << "the client is still there";
        release();
    }
}

// An RTSP receiver whose second parameter call fails leaves no half-configured client behind.
TEST_F(ReceiverRedirect, ThePortThatCannotBeSetClosesTheClient) {
    ASSERT_EQ(create(kRtsp, {"rtsp://a", nullptr, 7, 0}), S_OK);
    ScriptedSdk::failCall("SetParameter", 4, 1);
    EXPECT_THROW(receiver->Redirect("rtsp://b"), CKvVaneException);
    EXPECT_EQ(ScriptedSdk::remains().clients, 0);
    release();
}

} // namespace
