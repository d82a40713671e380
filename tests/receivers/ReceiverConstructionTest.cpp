#include "ReceiverFixture.h"

// Construction through the factories: what is refused and when, every code that comes back, and that nothing
// is left behind.

namespace {

const char* const kInit = "m_client->Init(url, networkInterfaceCard)";
const char* const kSetParameter = "m_client->SetParameter(parameterType, value, valueSize)";

class ReceiverConstruction : public ReceiverFixture {
protected:
    // The out-pointer is not written, and the failure is logged once, as the host sees it.
    void expectFailure(HRESULT result, HRESULT expected, const std::string& expression,
                       const std::string& site = "src/BaseReceiver") {
        EXPECT_EQ(result, expected);
        EXPECT_EQ(receiver, nullptr);
        const auto exceptions = RecordingLogger::takeExceptions();
        ASSERT_EQ(exceptions.size(), 1U);
        EXPECT_EQ(exceptions[0].m_result, expected);
        EXPECT_EQ(exceptions[0].m_expression, expression);
        EXPECT_EQ(exceptions[0].m_sourceFile, site);
        EXPECT_GT(exceptions[0].m_line, 0U);
    }
    // The calls end with these.
    static void expectEnd(const Calls& end) {
        const Calls calls = takeCalls();
        ASSERT_GE(calls.size(), end.size());
        EXPECT_EQ(Calls(calls.end() - static_cast<std::ptrdiff_t>(end.size()), calls.end()), end);
    }
};

// The protocol shows in what a redirect accepts; an empty one stands for none.
TEST_F(ReceiverConstruction, DerivesTheProtocolFromTheUrl) {
    struct Row {
        const char* url;
        std::string protocol;
    };
    const std::vector<Row> rows{
        {"rtsp://host/path", "rtsp"},
        {"rtsp://host/camera.sdp", "rtp"},
        {"rtp://host:5004", "rtp"},
        {"udp://239.0.0.1:1234", "udp"},
        {"rtmp://host/app/key", "rtmp"},
        {"rtmps://host/app", "rtmp"},
        {"http://host/?via=udp", "udp"},
        {"udp://host/rtp", "rtp"},
        {"rtmp://host/rtsp", "rtsp"},
        {"RTSP://HOST/PATH", ""},
        {"rtm://host", ""},
        {"", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.url);
        const HRESULT result = create(kTsOverUdp, {row.url, nullptr, 0, 0});
        if (row.protocol.empty()) {
            expectFailure(result, KV_E_INVALID_PARAMETER, "KV_E_INVALID_PARAMETER");
            EXPECT_EQ(takeCalls(), (Calls{"GetNetworkInterfaceCard()", "GetUrl()"}));
            continue;
        }
        ASSERT_EQ(result, S_OK);
        for (const std::string protocol : {"rtp", "rtsp", "udp", "rtmp"}) {
            HRESULT redirected = S_OK;
            try {
                redirected = receiver->Redirect((protocol + "://other").c_str());
            } catch (const CKvVaneException& exception) {
                redirected = exception.m_result;
            }
            EXPECT_EQ(redirected, protocol == row.protocol ? S_OK : KV_E_INVALID_PROTOCOL) << protocol;
        }
        release();
        restart();
    }
}

TEST_F(ReceiverConstruction, OnlyRtmpGetsTheCreatorThatTakesNoTransportStream) {
    ScriptedSdk::reset({{1, 33}});
    for (const ReceiverKind& kind : kReceiverKinds) {
        createAndForget(kind);
        EXPECT_EQ(ScriptedSdk::consumers().size(), &kind == &kRtmp ? 0U : 1U) << kind;
        release();
    }
}

TEST_F(ReceiverConstruction, GivesTheClientItsOwnAddressAndTheHostTheOnlyReference) {
    createAndForget(kRtsp);
    void* identity = nullptr;
    ASSERT_EQ(receiver->QueryInterface(IID_IUnknown, &identity), S_OK);
    EXPECT_EQ(ScriptedSdk::lastReceiver(), identity);
    EXPECT_EQ(receiver->Release(), 1U);
    EXPECT_EQ(release(), 0U);
}

TEST_F(ReceiverConstruction, RefusesNullsBeforeTheSocketLayerIsTouched) {
    for (const ReceiverKind& kind : kReceiverKinds) {
        SCOPED_TRACE(kind.name);
        const SettingsValues good{kind.url, nullptr, 0, 0};
        const SettingsValues noUrl{};
        expectFailure(kind.create(&good, nullptr, &receiver), KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER");
        expectFailure(kind.create(&good, &detector, nullptr), KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER",
                      "src/" + std::string(kind.name) + "ReceiverFactory");
        for (const SettingsValues* const values : {&noUrl, static_cast<const SettingsValues*>(nullptr)}) {
            const HRESULT result = kind.create(values, &detector, &receiver);
            if (&kind == &kRtp) { // a null URL is an empty text, which has no protocol
                expectFailure(result, KV_E_INVALID_PARAMETER, "KV_E_INVALID_PARAMETER");
            } else {
                expectFailure(result, KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER");
            }
        }
        for (const std::string& call : takeCalls()) {
            EXPECT_EQ(call.rfind("Get", 0), 0U) << call << ": only the settings are read";
        }
    }
}

TEST_F(ReceiverConstruction, AFailingCallUndoesWhatWasBegun) {
    struct Row {
        const char* call;
        std::uint32_t status;
        const char* expression;
        std::uint32_t result;
        std::uint32_t rtmpResult; // what the RTMP factory makes of it
        Calls undone;             // what is called after the failing call
    };
    const Calls undone{"client1.Shutdown()", "client1.Release()", "StopSocketService()"};
    const std::vector<Row> rows{
        {"StartSocketService", 0, "StartSocketService()", 0x89998294, 0x89998294, {}},
        {"StartSocketService", 13, "StartSocketService()", 0x89998290, 0x89998290, {}},
        {"CreateNetworkClient", 1, "KV_E_CONNECTION_FAILED", 0x89998290, 0x89998290, {"StopSocketService()"}},
        {"Init", 2, kInit, 0x89998044, 0x89998044, undone},
        {"Init", 11, kInit, 0x89998296, 0x89998290, undone},
        {"Init", 0xFFFFFFFF, kInit, 0x89998290, 0x89998290, undone},
    };
    for (const ReceiverKind& kind : kReceiverKinds) {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::string(kind.name) + " " + row.call + " " + std::to_string(row.status));
            restart();
            ScriptedSdk::failCall(row.call, row.status);
            expectFailure(create(kind, {kind.url, nullptr, 0, 0}),
                          kvResult(&kind == &kRtmp ? row.rtmpResult : row.result), row.expression);
            const Calls calls = takeCalls();
            EXPECT_NE(calls.at(calls.size() - row.undone.size() - 1).find(row.call), std::string::npos);
            EXPECT_EQ(Calls(calls.end() - static_cast<std::ptrdiff_t>(row.undone.size()), calls.end()),
                      row.undone);
        }
    }
}

// A parameter is set by the protocol receiver, when the base is complete: its destructor stops it too.
TEST_F(ReceiverConstruction, AParameterThatCannotBeSetTearsTheReceiverDown) {
    struct Row {
        const ReceiverKind& kind;
        int skip;
        Calls end;
    };
    const Calls undone{"client1.Shutdown()", "client1.Release()", "StopSocketService()"};
    const Calls teardown = Calls{"client1.Stop()"} + undone + Calls{"allocator ended"};
    const Row rows[] = {
        {kRtsp, 0, Calls{"client1.SetParameter(33, 1, 4)"} + teardown},
        {kRtsp, 1, Calls{"client1.SetParameter(9, 7, 2)"} + teardown},
        {kRtmp, 1, Calls{"client1.SetParameter(9, 7, 2)"} + teardown},
        // Parameter 3 is set while the base is made: the client was never initialised, so it is not stopped.
        {kRtmp, 0, Calls{"client1.SetParameter(3, 2, 4)"} + undone},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.end.front());
        restart();
        ScriptedSdk::failCall("SetParameter", 25, row.skip);
        expectFailure(create(row.kind, {row.kind.url, nullptr, 7, 0}), KV_E_DISCONNECTED, kSetParameter);
        expectEnd(row.end);
    }
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
                  "KV_E_UNKNOWN_ERROR", "src/RtspReceiverFactory");
}

} // namespace
