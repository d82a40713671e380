#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ScriptedSdk.h"

// The client side of the scripted SDK: the socket layer and network clients named client1, client2, ... in
// the order of their creation, with every call recorded in the CallLog. Consumers are named consumer1, ... in
// the order in which a creator gave them. A status of 0 is success, 11 for the socket layer.
namespace ScriptedSdk {

// Forgets every script and number; expects that no client is alive.
void resetClients();

// The next calls of the named operation ("StartSocketService", "CreateNetworkClient", "Init", "Shutdown",
// ...) return `status`, after `skip` more that succeed. For CreateNetworkClient any status means no client.
void failCall(const std::string& call, std::uint32_t status, int skip = 0);

// Whether a failure of that call has not happened yet.
[[nodiscard]] bool isFailurePending(const std::string& call);

// What every client announces in Init, from a thread of its own, before Init returns.
void setAnnouncements(std::vector<Announcement> announcements);

// While on, Init waits for nothing and a call names no record of the receiver: for long runs.
void setClientRecording(bool recording);

[[nodiscard]] int liveClients();
// Successful starts of the socket layer without a stop.
[[nodiscard]] int runningServices();
// Operations of a client called from inside one of its own callbacks, after its end, or with a callback of it
// still running when it was released.
[[nodiscard]] int misuses();
// The creator's exceptions that reached the announcing thread.
[[nodiscard]] int announcementExceptions();
// What the last client was given as its receiver.
[[nodiscard]] void* lastReceiver();

// The consumers that the newest client got from its creator.
[[nodiscard]] std::vector<MainConcept::NetworkStreaming::IMediaConsumer*> consumers();

// Runs `callback` on a thread of the newest client. The client's Stop and Shutdown wait for it, as those of a
// real client wait for the delivery under way.
void runOnClientThread(std::function<void()> callback);
// Announces one more stream of the newest client, from a thread of it.
void announceOnClientThread(Announcement announcement);
// Waits up to 30 s until no such thread is left; false when one is.
[[nodiscard]] bool waitForClientThreads();

} // namespace ScriptedSdk
