#include "KvVaneException.h"
#include "ReceiverFixture.h"

// Construction through the factories: what is refused and when, every code that comes back, and that nothing
// is left behind.

namespace {

const HRESULT k296 = kvResult(0x89998296);

class ReceiverConstruction : public ReceiverFixture {
protected:
    // The out-pointer is not written, and the failure is logged once, as the host sees it.
    void expectFailure(HRESULT result, HRESULT expected, const std::string& expression) {
        EXPECT_EQ(result, expected);
        EXPECT_EQ(receiver, nullptr);
        const auto exceptions = RecordingLogger::takeExceptions();
        ASSERT_EQ(exceptions.size(), 1U);
        EXPECT_EQ(exceptions[0].m_result, expected);
        EXPECT_EQ(exceptions[0].m_expression, expression);
        receiver = nullptr;
    }
    static std::string siteOf(const CKvVaneException& exception) { return exception.m_sourceFile; }
};

struct ProtocolCase {
    const char* url;
    const char* protocol; // null: none
};

// The protocol shows in the creator (RTMP takes no transport stream) and in what a redirect accepts.
const std::vector<ProtocolCase> kProtocols{
    {"rtsp://host/path", "rtsp"},    {"rtsp://host/camera.sdp", "rtp"}, {"rtp://host:5004", "rtp"},
    {"udp://239.0.0.1:1234", "udp"}, {"rtmp://host/app/key", "rtmp"},   {"rtmps://host/app", "rtmp"},
    {"http://host/?via=udp", "udp"}, {"udp://host/rtp", "rtp"},         {"rtmp://host/rtsp", "rtsp"},
    {"RTSP://HOST/PATH", nullptr},   {"http://host/path", nullptr},     {"", nullptr},
    {"RTSP://host/sdp", "rtp"},      {"rtm://host", nullptr},
};
const std::vector<std::pair<std::string, const char*>> kUrlOfProtocol{
    {"rtp", "rtp://other"}, {"rtsp", "rtsp://other"}, {"udp", "udp://other"}, {"rtmp", "rtmp://other"}};

TEST_F(ReceiverConstruction, DerivesTheProtocolFromTheUrl) {
    for (const ProtocolCase& row : kProtocols) {
        SCOPED_TRACE(row.url);
        const HRESULT result = create(kTsOverUdp, {row.url, nullptr, 0, 0});
        if (row.protocol == nullptr) {
            expectFailure(result, KV_E_INVALID_PARAMETER, "KV_E_INVALID_PARAMETER");
            EXPECT_EQ(takeCalls(), (Calls{"GetNetworkInterfaceCard()", "GetUrl()"}));
            continue;
        }
        ASSERT_EQ(result, S_OK);
        for (const auto& [protocol, url] : kUrlOfProtocol) {
            HRESULT redirected = S_OK;
            try {
                redirected = receiver->Redirect(url);
            } catch (const CKvVaneException& exception) {
                redirected = exception.m_result;
            }
            EXPECT_EQ(redirected, protocol == row.protocol ? S_OK : KV_E_INVALID_PROTOCOL) << url;
        }
        release();
        CallLog::instance().clear();
    }
}

TEST_F(ReceiverConstruction, OnlyRtmpGetsTheCreatorThatTakesNoTransportStream) {
    ScriptedSdk::setAnnouncements({{1, 33, {}, 0, 0}});
    for (const ReceiverKind& kind : kReceiverKinds) {
        createAndForget(kind);
        EXPECT_EQ(ScriptedSdk::consumers().size(), &kind == &kRtmp ? 0U : 1U) << kind;
        release();
    }
}

TEST_F(ReceiverConstruction, GivesTheClientItsOwnAddressAndTheHostTheOnlyReference) {
    createAndForget(kRtsp);
    EXPECT_EQ(receiver->AddRef(), 2U);
    EXPECT_EQ(receiver->Release(), 1U);
    void* identity = nullptr;
    ASSERT_EQ(receiver->QueryInterface(IID_IUnknown, &identity), S_OK);
    EXPECT_EQ(ScriptedSdk::lastReceiver(), identity);
    EXPECT_EQ(receiver->Release(), 1U);
    EXPECT_EQ(release(), 0U);
}

TEST_F(ReceiverConstruction, RefusesNullsBeforeTheSocketLayerIsTouched) {
    for (const ReceiverKind& kind : kReceiverKinds) {
        SCOPED_TRACE(kind.name);
        const bool isRtp = &kind == &kRtp; // a null URL is an empty text, which has no protocol
        const char* const noUrl = isRtp ? "KV_E_INVALID_PARAMETER" : "KV_E_INVALID_POINTER";
        const HRESULT noUrlCode = isRtp ? KV_E_INVALID_PARAMETER : KV_E_INVALID_POINTER;
        const SettingsValues good{kind.url, nullptr, 0, 0};
        const SettingsValues empty{};

        expectFailure(kind.create(&good, nullptr, &receiver), KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER");
        expectFailure(kind.create(&empty, &detector, &receiver), noUrlCode, noUrl);
        expectFailure(kind.create(nullptr, &detector, &receiver), noUrlCode, noUrl);
        expectFailure(kind.create(nullptr, nullptr, &receiver), KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER");
        expectFailure(kind.create(&good, &detector, nullptr), KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER");
        for (const std::string& call : takeCalls()) {
            EXPECT_EQ(call.rfind("Get", 0), 0U) << call << ": only the settings are read";
        }
    }
}

struct FailureCase {
    const char* call;
    std::uint32_t status;
    const char* expression;
    HRESULT result;
    HRESULT rtmpResult; // what the RTMP factory makes of it
    Calls undone;       // what is called after the failing call
};

const Calls kNoStop{"client1.Shutdown()", "client1.Release()", "StopSocketService()"};

const std::vector<FailureCase> kFailures{
    {"StartSocketService", 0, "StartSocketService()", kvResult(0x89998294), kvResult(0x89998294), {}},
    {"StartSocketService", 15, "StartSocketService()", kvResult(0x8999832B), kvResult(0x8999832B), {}},
    {"StartSocketService", 13, "StartSocketService()", KV_E_CONNECTION_FAILED, KV_E_CONNECTION_FAILED, {}},
    {"CreateNetworkClient",
     1,
     "KV_E_CONNECTION_FAILED",
     KV_E_CONNECTION_FAILED,
     KV_E_CONNECTION_FAILED,
     {"StopSocketService()"}},
    {"Init", 2, "m_client->Init(url, networkInterfaceCard)", KV_E_INVALID_PARAMETER, KV_E_INVALID_PARAMETER,
     kNoStop},
    {"Init", 9, "m_client->Init(url, networkInterfaceCard)", kvResult(0x89998294), kvResult(0x89998294),
     kNoStop},
    {"Init", 11, "m_client->Init(url, networkInterfaceCard)", k296, KV_E_CONNECTION_FAILED, kNoStop},
    {"Init", 1, "m_client->Init(url, networkInterfaceCard)", KV_E_CONNECTION_FAILED, KV_E_CONNECTION_FAILED,
     kNoStop},
    {"Init", 0xFFFFFFFF, "m_client->Init(url, networkInterfaceCard)", KV_E_CONNECTION_FAILED,
     KV_E_CONNECTION_FAILED, kNoStop},
};

TEST_F(ReceiverConstruction, AFailingCallUndoesWhatWasBegun) {
    for (const ReceiverKind& kind : kReceiverKinds) {
        for (const FailureCase& row : kFailures) {
            SCOPED_TRACE(std::string(kind.name) + " " + row.call + " " + std::to_string(row.status));
            ScriptedSdk::resetClients();
            CallLog::instance().clear();
            ScriptedSdk::failCall(row.call, row.status);
            expectFailure(create(kind, {kind.url, nullptr, 0, 0}),
                          &kind == &kRtmp ? row.rtmpResult : row.result, row.expression);
            const Calls calls = takeCalls();
            ASSERT_GE(calls.size(), row.undone.size() + 1);
            const auto undone = calls.end() - static_cast<std::ptrdiff_t>(row.undone.size());
            EXPECT_EQ(Calls(undone, calls.end()), row.undone);
            EXPECT_NE((undone - 1)->find(row.call), std::string::npos) << *(undone - 1);
        }
    }
}

// A parameter is set by the protocol receiver, when the base is complete: its destructor stops it too.
TEST_F(ReceiverConstruction, AParameterThatCannotBeSetTearsTheReceiverDown) {
    struct Row {
        const ReceiverKind& kind;
        int skip;
        Calls before;
    };
    const Calls init = opening(1, "x", "null");
    for (const Row& row : std::vector<Row>{{kRtsp, 0, {"client1.SetParameter(33, 1, 4)"}},
                                           {kRtsp, 1, {"client1.SetParameter(9, 7, 2)"}},
                                           {kRtmp, 1, {"client1.SetParameter(9, 7, 2)"}}}) {
        SCOPED_TRACE(row.kind.name + std::to_string(row.skip));
        ScriptedSdk::resetClients();
        CallLog::instance().clear();
        ScriptedSdk::failCall("SetParameter", 25, row.skip);
        expectFailure(create(row.kind, {row.kind.url, nullptr, 7, 0}), KV_E_DISCONNECTED,
                      "m_client->SetParameter(parameterType, value, valueSize)");
        const Calls calls = takeCalls();
        const Calls end = row.before + stopping(1) + Calls{"StopSocketService()"};
        ASSERT_GE(calls.size(), end.size());
        EXPECT_EQ(Calls(calls.end() - static_cast<std::ptrdiff_t>(end.size()), calls.end()), end);
    }
    // Parameter 3 is set while the base is made: the client was never initialised, so it is not stopped.
    ScriptedSdk::resetClients();
    ScriptedSdk::failCall("SetParameter", 12);
    expectFailure(create(kRtmp, {"rtmp://host", nullptr, 0, 0}), kvResult(0x89998048),
                  "m_client->SetParameter(parameterType, value, valueSize)");
    EXPECT_EQ(takeCalls(), (Calls{"GetNetworkInterfaceCard()", "GetUrl()", "StartSocketService()",
                                  "CreateNetworkClient(creator, receiver)", "client1.SetParameter(3, 2, 4)"} +
                            kNoStop));
}

TEST_F(ReceiverConstruction, FailuresNameTheirSite) {
    ScriptedSdk::failCall("Init", 8);
    SettingsValues values{"rtsp://host", nullptr, 0, 0};
    EXPECT_EQ(kRtsp.create(&values, &detector, &receiver), KV_E_CONNECTION_FAILED);
    EXPECT_EQ(kRtmp.create(&values, &detector, nullptr), KV_E_INVALID_POINTER);
    const auto exceptions = RecordingLogger::takeExceptions();
    ASSERT_EQ(exceptions.size(), 2U);
    EXPECT_EQ(siteOf(exceptions[0]), "src/BaseReceiver");
    EXPECT_NE(
        std::string(exceptions[0].m_function).find("KorvelVideo::Network::BaseReceiver::initializeClient("),
        std::string::npos)
        << exceptions[0].m_function;
    EXPECT_GT(exceptions[0].m_line, 0U);
    EXPECT_EQ(siteOf(exceptions[1]), "src/RtmpReceiverFactory");
    EXPECT_NE(std::string(exceptions[1].m_function).find("RtmpReceiverFactory::CreateReceiver("),
              std::string::npos)
        << exceptions[1].m_function;
}

// What a host's settings object throws is not the component's to pass on.
TEST_F(ReceiverConstruction, NoExceptionOfAnotherKindLeavesTheFactory) {
    struct Throwing final : StaticTestObject<IKvRtspReceiverSettings> {
        const char* GetUrl() override { throw 5; }
        const char* GetNetworkInterfaceCard() override { return nullptr; }
        std::int32_t GetPort() override { return 0; }
    } settings;
    KorvelVideo::Network::RtspReceiverFactory factory;
    expectFailure(factory.CreateReceiver(&settings, &detector, &receiver), KV_E_CONNECTION_FAILED,
                  "KV_E_UNKNOWN_ERROR");
}

} // namespace
