#include "KvVaneException.h"
#include "ReceiverFixture.h"

// Redirects that fail: what is raised, what has been called until then, and what the receiver can do next.

namespace {

struct RedirectCase {
    const char* name;
    const ReceiverKind& kind;
    const char* url; // null: a null URL
    const char* failingCall;
    std::uint32_t status;
    HRESULT raised;
    const char* expression;
    Calls afterStop;
    bool hasClient; // afterwards

    friend std::ostream& operator<<(std::ostream& stream, const RedirectCase& row) {
        return stream << row.name;
    }
};

const Calls kClosed2{"client2.Shutdown()", "client2.Release()"};

Calls reopened(const std::string& url, const Calls& optionCalls = {}) {
    Calls calls{"allocator ended", "CreateNetworkClient(creator, receiver)"};
    calls = calls + optionCalls + Calls{"client2.Init(\"" + url + "\", null)"};
    return calls;
}
const Calls kAnnounced{"OnVideoStreamDetected(H.264 28 0 0 0 0 0 0 0 0 0)",
                       "CreateBufferAllocator(2, 8, 1048576, 65536, 1, null)"};
const char* const kSetParameter = "m_client->SetParameter(parameterType, value, valueSize)";

const std::vector<RedirectCase> kRedirects{
    {"NullUrl", kRtsp, nullptr, nullptr, 0, KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER", {}, false},
    {"NullRtpUrl", kRtp, nullptr, nullptr, 0, KV_E_INVALID_PARAMETER, "KV_E_INVALID_PARAMETER", {}, false},
    {"UnknownProtocol",
     kRtsp,
     "http://b",
     nullptr,
     0,
     KV_E_INVALID_PARAMETER,
     "KV_E_INVALID_PARAMETER",
     {},
     false},
    {"OtherProtocol",
     kRtsp,
     "rtmp://b",
     nullptr,
     0,
     KV_E_INVALID_PROTOCOL,
     "KV_E_INVALID_PROTOCOL",
     {},
     false},
    {"NoClient",
     kRtsp,
     "rtsp://b",
     "CreateNetworkClient",
     1,
     KV_E_CONNECTION_FAILED,
     "KV_E_CONNECTION_FAILED",
     {"allocator ended", "CreateNetworkClient(creator, receiver)"},
     false},
    {"NotOpened", kTsOverUdp, "udp://b", "Init", 7, kvResult(0x89998292),
     "m_client->Init(url, networkInterfaceCard)", reopened("udp://b") + kClosed2, false},
    {"Rtp", kRtp, "rtp://b", "Init", 11, kvResult(0x89998296), "m_client->Init(url, networkInterfaceCard)",
     reopened("rtp://b") + kClosed2, false},
    {"FirstParameter", kRtsp, "rtsp://b", "SetParameter", 2, KV_E_INVALID_PARAMETER, kSetParameter,
     reopened("rtsp://b") + kAnnounced + Calls{"client2.SetParameter(33, 1, 4)"} + kClosed2, false},
    {"ClientOption", kRtmp, "rtmp://b", "SetParameter", 2, KV_E_INVALID_PARAMETER, kSetParameter,
     Calls{"NotifyStatus(0x0999202F)", "allocator ended", "CreateNetworkClient(creator, receiver)",
           "client2.SetParameter(3, 2, 4)"} +
         kClosed2,
     false},
};

class ReceiverRedirect : public ReceiverFixture, public testing::WithParamInterface<RedirectCase> {};

TEST_P(ReceiverRedirect, RaisesStopsAndCanBeRepeated) {
    const RedirectCase& row = GetParam();
    createAndForget(row.kind);
    ASSERT_EQ(receiver->Start(), S_OK);
    CallLog::instance().clear();
    if (row.failingCall != nullptr) {
        ScriptedSdk::failCall(row.failingCall, row.status);
    }
    try {
        receiver->Redirect(row.url);
        ADD_FAILURE() << "nothing was raised";
    } catch (const CKvVaneException& exception) {
        EXPECT_EQ(exception.m_result, row.raised);
        EXPECT_STREQ(exception.m_expression, row.expression);
        EXPECT_STREQ(exception.m_sourceFile, "src/BaseReceiver");
    }
    EXPECT_EQ(takeCalls(), stopping(1) + row.afterStop);
    EXPECT_EQ(receiver->Stop(), S_OK); // it is stopped already
    EXPECT_EQ(receiver->Start(), KV_E_DISCONNECTED);
    EXPECT_EQ(receiver->Redirect(row.kind.otherUrl), S_OK);
    EXPECT_EQ(receiver->Stop(), S_OK);
    release();
}

INSTANTIATE_TEST_SUITE_P(Failures, ReceiverRedirect, testing::ValuesIn(kRedirects),
                         [](const auto& instance) { return std::string(instance.param.name); });

class ReceiverRedirectResult : public ReceiverFixture {};

TEST_F(ReceiverRedirectResult, IsThatOfTheStart) {
    for (const ReceiverKind& kind : kReceiverKinds) {
        ScriptedSdk::resetClients();
        createAndForget(kind);
        ScriptedSdk::failCall("Play", 20);
        EXPECT_EQ(receiver->Redirect(kind.otherUrl), kvResult(0x89998291)) << kind;
        EXPECT_EQ(receiver->Start(), S_OK) << "the client is still there";
        release();
    }
}

TEST_F(ReceiverRedirectResult, TheResultOfItsStopIsIgnored) {
    createAndForget(kRtsp);
    ScriptedSdk::failCall("Stop", 8);
    EXPECT_EQ(receiver->Redirect(kRtsp.otherUrl), S_OK);
    release();
}

// An RTSP receiver whose third parameter call fails leaves no half-configured client behind.
TEST_F(ReceiverRedirectResult, ThePortThatCannotBeSetClosesTheClient) {
    ASSERT_EQ(create(kRtsp, {"rtsp://a", nullptr, 7, 0}), S_OK);
    ScriptedSdk::failCall("SetParameter", 4, 1);
    EXPECT_THROW(receiver->Redirect("rtsp://b"), CKvVaneException);
    EXPECT_EQ(ScriptedSdk::liveClients(), 0);
    release();
}

} // namespace
