#include "Application.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "AacConfiguration.h"
#include "System.h"

namespace KorvelVideo::Host {

namespace {

constexpr auto tickPeriod = std::chrono::seconds(1);

ClassObject& aacConfigurationClass() {
    static ClassObject classObject(AacConfiguration::create);
    return classObject;
}

} // namespace

Application::Application(Options options, Terminal& terminal)
    : m_options(std::move(options)), m_terminal(terminal) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    CoRegisterClassObject(CLSID_KvAACCodecConfigDataAccess, &aacConfigurationClass(), CLSCTX_INPROC_SERVER,
                          REGCLS_MULTIPLEUSE, &m_configurationCookie);
}

Application::~Application() {
    for (Entry& entry : m_entries) {
        entry.reception->join();
        entry.reception->beginStop();
        entry.reception->join();
    }
    m_writer.reset();
    m_entries.clear();
    CoRevokeClassObject(m_configurationCookie);
    CoUninitialize();
}

ExitCode Application::run() {
    if (!prepareOutput()) {
        return exitOutputFailed;
    }
    openAll();
    while (!isFinished()) {
        wait();
        handleEvents();
        settle();
        redirectWhenDue();
        tick();
    }
    return finish();
}

bool Application::prepareOutput() {
    if (m_options.outputDirectory.empty()) {
        return true;
    }
    std::error_code error;
    std::filesystem::create_directories(m_options.outputDirectory, error);
    if (!error && !std::filesystem::is_directory(m_options.outputDirectory, error)) {
        error = std::make_error_code(std::errc::not_a_directory);
    }
    if (!error) {
        error = checkWritableFolder(m_options.outputDirectory);
    }
    if (error) {
        m_terminal.complain("cannot write to " + m_options.outputDirectory + ": " + error.message());
        return false;
    }
    m_writer = std::make_unique<OutputWriter>(m_options.outputDirectory);
    return true;
}

void Application::openAll() {
    const Reception::Services services{m_factories, m_events, m_streamNumbers, m_pools, m_writer.get()};
    for (const Source& source : m_options.sources) {
        const ReceiverSettings settings{source.url, m_options.networkInterface, m_options.port,
                                        m_options.clientOption};
        const auto number = static_cast<std::uint32_t>(m_entries.size() + 1);
        Entry& entry = m_entries.emplace_back();
        entry.reception = std::make_unique<Reception>(number, source.kind, settings, services);
        if (!isUsable(source)) {
            entry.outcome.isOpenFailed = true;
            entry.isOver = true;
        }
    }
    for (Entry& entry : m_entries) {
        if (!entry.isOver) {
            entry.reception->beginOpen();
        }
    }
}

// Whether there is a component for it and, for a description file, the file.
bool Application::isUsable(const Source& source) {
    const bool isFile = source.url.find("://") == std::string::npos;
    if (isFile) {
        if (const std::error_code error = checkReadableFile(source.url)) {
            m_terminal.complain("cannot read " + source.url + ": " + error.message());
            return false;
        }
    }
    std::string problem;
    if (FAILED(m_factories.load(source.kind, problem))) {
        m_terminal.complain(problem);
        return false;
    }
    return true;
}

void Application::wait() { m_events.wait(nextDeadline()); }

Clock::time_point Application::nextDeadline() const {
    Clock::time_point deadline = m_nextTick;
    const auto earlier = [&deadline, this](Seconds after) {
        deadline = std::min(deadline, *m_receivingSince + std::chrono::ceil<Clock::duration>(after));
    };
    if (m_receivingSince && m_options.duration) {
        earlier(*m_options.duration);
    }
    if (m_receivingSince && m_options.redirect && !m_isRedirected) {
        earlier(m_options.redirectAfter);
    }
    return deadline;
}

void Application::handleEvents() {
    for (const Event& event : m_events.take()) {
        printEvent(event);
    }
}

void Application::printEvent(const Event& event) {
    const Seconds time = event.time - m_started;
    switch (event.kind) {
    case Event::Kind::announced: {
        const Entry& entry = entryOf(*event.stream);
        const StreamReport described = report(entry, *event.stream);
        const std::string& url = entry.reception->url();
        m_terminal.write(m_options.json ? announcementJson(time, described, url)
                                        : announcementText(described, url));
        break;
    }
    case Event::Kind::status:
        m_terminal.write(m_options.json ? statusJson(time, event.stream->number(), event.code)
                                        : statusText(event.stream->number(), event.code));
        break;
    case Event::Kind::message:
        m_terminal.complain(event.text);
        break;
    case Event::Kind::progress:
        break;
    }
}

void Application::settle() {
    for (Entry& entry : m_entries) {
        if (!entry.isOver && !entry.reception->isBusy()) {
            settle(entry);
        }
    }
}

// Ends a reception that has come to its end by itself.
void Application::settle(Entry& entry) {
    const bool isOpenFailed = entry.reception->state() == ReceptionState::openFailed;
    if (!isOpenFailed && !m_receivingSince) {
        m_receivingSince = Clock::now();
    }
    entry.outcome.isOpenFailed = isOpenFailed;
    entry.outcome.isLost = entry.reception->isLost();
    if (isOpenFailed || entry.outcome.isLost || entry.reception->hasEnded()) {
        refreshLoss();
        entry.isOver = true;
        entry.reception->beginStop();
    }
}

void Application::redirectWhenDue() {
    if (!m_options.redirect || m_isRedirected || !m_receivingSince || m_entries.front().isOver ||
        Clock::now() < *m_receivingSince + m_options.redirectAfter) {
        return;
    }
    m_isRedirected = true;
    m_entries.front().reception->beginRedirect(m_options.redirect->url);
}

void Application::tick() {
    const Clock::time_point now = Clock::now();
    if (now < m_nextTick) {
        return;
    }
    m_nextTick = now + tickPeriod;
    refreshLoss();
    std::vector<std::string> lines;
    for (const Entry& entry : m_entries) {
        if (entry.isOver || entry.reception->isBusy() || !m_receivingSince) {
            continue;
        }
        for (const ReceivedStream* stream : entry.reception->streams()) {
            if (stream->isRetired()) {
                continue;
            }
            StreamReport current = report(entry, *stream);
            current.bitrate = measureBitrate(*stream);
            lines.push_back(m_options.json ? statisticsJson(sinceStart(), current) : statisticsText(current));
        }
    }
    m_terminal.show(lines);
}

bool Application::isFinished() const {
    if (m_events.isEndRequested() || !m_terminal.isWritable()) {
        return true;
    }
    if (m_receivingSince && m_options.duration && Clock::now() >= *m_receivingSince + *m_options.duration) {
        return true;
    }
    return std::all_of(m_entries.begin(), m_entries.end(), [](const Entry& entry) { return entry.isOver; });
}

ExitCode Application::finish() {
    const Clock::time_point ended = Clock::now();
    refreshLoss();
    bool isOpening = false;
    for (Entry& entry : m_entries) {
        if (entry.isOver) {
            continue;
        }
        if (entry.reception->isBusy()) {
            isOpening = true;
            entry.outcome.isOpenFailed = true;
            m_terminal.complain("gave up opening " + withoutPassword(entry.reception->url()));
        } else {
            settle(entry);
            entry.isOver = true;
            entry.reception->beginStop();
        }
    }
    for (Entry& entry : m_entries) {
        if (entry.isOver) {
            entry.reception->join();
        }
    }
    if (m_writer != nullptr) {
        m_writer->close();
    }
    m_terminal.makeRoom();
    handleEvents();
    printSummaries(m_receivingSince ? ended - *m_receivingSince : Clock::duration::zero());
    const ExitCode code = exitCode();
    if (m_options.json) {
        m_terminal.write(endJson(sinceStart(), code));
    }
    if (isOpening) {
        std::_Exit(code);
    }
    return code;
}

void Application::printSummaries(Seconds duration) {
    for (const Entry& entry : m_entries) {
        for (const ReceivedStream* stream : entry.reception->streams()) {
            StreamReport total = report(entry, *stream);
            if (duration.count() > 0) {
                total.bitrate = 8.0 * static_cast<double>(total.bytes) / duration.count();
            }
            m_terminal.write(m_options.json ? summaryJson(sinceStart(), total, duration)
                                            : summaryText(total, duration));
        }
    }
}

ExitCode Application::exitCode() const {
    std::vector<ReceptionOutcome> outcomes;
    for (const Entry& entry : m_entries) {
        outcomes.push_back(entry.outcome);
        outcomes.back().hasReceived = entry.reception->hasReceived();
    }
    return decideExitCode(outcomes, m_writer != nullptr && m_writer->hasFailed());
}

// A client's counters go with the client, so the last ones are kept.
void Application::refreshLoss() {
    m_counters.refresh();
    for (Entry& entry : m_entries) {
        if (const std::optional<Loss> loss = m_counters.lossOf(entry.reception->receiverIdentity())) {
            entry.loss = loss;
        }
    }
}

StreamReport Application::report(const Entry& entry, const ReceivedStream& stream) const {
    StreamReport report;
    const StreamCounts counts = stream.counts();
    report.stream = stream.number();
    report.source = stream.source();
    report.description = stream.description();
    report.units = counts.units;
    report.bytes = counts.bytes;
    report.timeStamp = counts.timeStamp;
    if (counts.lastArrival) {
        report.age = std::max<Seconds>(Clock::now() - *counts.lastArrival, Seconds(0));
    }
    report.loss = entry.loss;
    if (const OutputFile* file = stream.file(); file != nullptr) {
        report.file = file->path();
        report.fileBytes = file->writtenBytes();
        report.fileLostUnits = file->lostUnits();
        report.fileProblem = file->problem();
    }
    return report;
}

double Application::measureBitrate(const ReceivedStream& stream) {
    const Meter now{Clock::now(), stream.counts().bytes};
    const auto [found, isNew] = m_meters.try_emplace(&stream, Meter{*m_receivingSince, 0});
    const Seconds passed = now.time - found->second.time;
    const auto bits = static_cast<double>(now.bytes - found->second.bytes) * 8.0;
    found->second = now;
    return passed.count() > 0 ? bits / passed.count() : 0.0;
}

Seconds Application::sinceStart() const { return Clock::now() - m_started; }

const Application::Entry& Application::entryOf(const ReceivedStream& stream) const {
    return m_entries[stream.source() - 1];
}

} // namespace KorvelVideo::Host
