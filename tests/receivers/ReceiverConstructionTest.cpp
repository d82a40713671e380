#include <sstream>

#include "ReceiverFixture.h"

// Construction through the factories and redirects: what is refused and when, every code that comes back, and
// that nothing is left behind.

namespace {

const ReceiverKind& kindOf(const std::string& name) {
    return *std::find_if(kReceiverKinds.begin(), kReceiverKinds.end(),
                         [&name](const ReceiverKind& kind) { return kind.name == name; });
}

class ReceiverConstruction : public ReceiverFixture {};

// A row is the kind, "create" or "redirect", the URL, what is null or fails, and for an operation of the SDK
// its status and how often it succeeds before. A redirect that fails leaves the receiver stopped.
TEST_F(ReceiverConstruction, AFailureUndoesWhatWasBegun) {
    for (const auto& [row, expected] : readSections("receivers/failures.txt")) {
        SCOPED_TRACE(row);
        std::istringstream words(row);
        std::string kindName;
        std::string operation;
        std::string url;
        std::string call;
        std::uint32_t status = 0;
        int skip = 0;
        words >> kindName >> operation >> url >> call >> status >> skip;
        const ReceiverKind& kind = kindOf(kindName);
        const SettingsValues values{operation == "redirect" ? kind.url
                                    : call == "url"         ? nullptr
                                                            : url.c_str(),
                                    nullptr, 7, 0};
        restart();
        if (operation == "redirect") {
            ASSERT_EQ(create(kind, values), S_OK);
            ASSERT_EQ(receiver->Start(), S_OK);
            CallLog::instance().clear();
            ScriptedSdk::failCall(call, status, skip);
            const HRESULT result = redirect(call == "url" ? nullptr : url.c_str());
            CallLog::instance().record("-> " + hexadecimal(result));
            EXPECT_EQ(takeText(), expected);
            EXPECT_EQ(receiver->Stop(), S_OK); // it is stopped already
            EXPECT_EQ(receiver->Start(), KV_E_DISCONNECTED);
            EXPECT_EQ(receiver->Redirect(kind.otherUrl), S_OK);
            release();
        } else {
            ScriptedSdk::failCall(call, status, skip);
            const HRESULT result =
                kind.create(call == "settings" ? nullptr : &values, call == "callback" ? nullptr : &detector,
                            call == "receiver" ? nullptr : &receiver);
            CallLog::instance().record("-> " + hexadecimal(result));
            EXPECT_EQ(takeText(), expected);
            EXPECT_EQ(receiver, nullptr) << "the out-pointer is not written";
        }
    }
}

// The protocol shows in what a redirect accepts; an empty one stands for none.
TEST_F(ReceiverConstruction, DerivesTheProtocolFromTheUrl) {
    const std::pair<const char*, std::string> rows[] = {{"rtsp://host/path", "rtsp"},
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
                                                        {"", ""}};
    for (const auto& [url, expected] : rows) {
        SCOPED_TRACE(url);
        const HRESULT result = create(kTsOverUdp, {url});
        EXPECT_EQ(result, expected.empty() ? KV_E_INVALID_PARAMETER : S_OK);
        if (receiver != nullptr) {
            for (const std::string protocol : {"rtp", "rtsp", "udp", "rtmp"}) {
                EXPECT_EQ(redirect((protocol + "://other").c_str()),
                          protocol == expected ? S_OK : KV_E_INVALID_PROTOCOL);
            }
            release();
        }
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

// What a host's settings object throws is not the component's to pass on.
TEST_F(ReceiverConstruction, NoExceptionOfAnotherKindLeavesTheFactory) {
    struct Throwing final : StaticTestObject<IKvRtspReceiverSettings> {
        const char* GetUrl() override { throw 5; }
        const char* GetNetworkInterfaceCard() override { return nullptr; }
        std::int32_t GetPort() override { return 0; }
    } settings;
    KorvelVideo::Network::RtspReceiverFactory factory;
    EXPECT_EQ(factory.CreateReceiver(&settings, &detector, &receiver), KV_E_CONNECTION_FAILED);
    EXPECT_EQ(takeText(), "0x89998290 src/RtspReceiverFactory: KV_E_UNKNOWN_ERROR\n");
}

} // namespace
