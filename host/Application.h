#pragma once

// A run of kvreceive: opens the sources, shows what comes, and ends when the sources, the time or the user
// say so. Everything here runs on the main thread.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EventQueue.h"
#include "ExitCode.h"
#include "NetworkCounters.h"
#include "Options.h"
#include "OutputWriter.h"
#include "ReceiverFactories.h"
#include "Reception.h"
#include "Report.h"
#include "Terminal.h"

namespace KorvelVideo::Host {

class Application {
public:
    Application(Options options, Terminal& terminal);
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application();

    // Where the user or the time ends a run while a source is still being opened, which cannot be broken off,
    // everything else is closed and the process ends here.
    [[nodiscard]] ExitCode run();

    // Any thread: ends the run, now or as soon as it begins.
    void requestEnd() noexcept { m_events.requestEnd(); }

private:
    struct Entry {
        std::unique_ptr<Reception> reception;
        ReceptionOutcome outcome;
        bool isOver = false; // failed, ended, lost or stopped
        std::optional<Loss> loss;
    };
    struct Meter {
        Clock::time_point time;
        std::uint64_t bytes = 0;
    };

    [[nodiscard]] bool prepareOutput();
    void openAll();
    [[nodiscard]] bool isUsable(const Source& source);
    void wait();
    void handleEvents();
    void printEvent(const Event& event);
    void settle();
    void settle(Entry& entry);
    void redirectWhenDue();
    void tick();
    [[nodiscard]] bool isFinished() const;
    [[nodiscard]] ExitCode finish();
    void printSummaries(Seconds duration);
    [[nodiscard]] ExitCode exitCode() const;

    void refreshLoss();
    [[nodiscard]] StreamReport report(const Entry& entry, const ReceivedStream& stream) const;
    [[nodiscard]] double measureBitrate(const ReceivedStream& stream);
    [[nodiscard]] Seconds sinceStart() const;
    [[nodiscard]] Clock::time_point nextDeadline() const;
    [[nodiscard]] const Entry& entryOf(const ReceivedStream& stream) const;

    const Options m_options;
    Terminal& m_terminal;
    const Clock::time_point m_started = Clock::now();
    EventQueue m_events;
    ReceiverFactories m_factories;
    NetworkCounters m_counters;
    StreamNumbers m_streamNumbers{0};
    MediaPools m_pools;
    std::vector<Entry> m_entries;
    // After the pools, so that it ends before them: its queue holds their buffers.
    std::unique_ptr<OutputWriter> m_writer;
    std::map<const ReceivedStream*, Meter> m_meters;
    std::optional<Clock::time_point> m_receivingSince;
    Clock::time_point m_nextTick = m_started;
    bool m_isRedirected = false;
    DWORD m_configurationCookie = 0;
};

} // namespace KorvelVideo::Host
