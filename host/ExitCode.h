#pragma once

#include <span>

namespace KorvelVideo::Host {

enum ExitCode : int {
    exitReceived = 0,
    exitOutputFailed = 1, // a file is missing or not whole
    exitUsage = 2,
    exitOpenFailed = 3,
    exitNothingCame = 4,
    exitConnectionLost = 5,
};

// How the reception of one source went.
struct ReceptionOutcome {
    bool isOpenFailed = false; // also: could not be redirected, or was still being opened at the end
    bool isLost = false;
    bool hasReceived = false;
};

// The code of the first source that fared badly; a bad output counts when none did.
[[nodiscard]] inline ExitCode decideExitCode(std::span<const ReceptionOutcome> outcomes,
                                             bool isOutputFailed) noexcept {
    for (const ReceptionOutcome& outcome : outcomes) {
        if (outcome.isOpenFailed) {
            return exitOpenFailed;
        }
        if (outcome.isLost) {
            return exitConnectionLost;
        }
        if (!outcome.hasReceived) {
            return exitNothingCame;
        }
    }
    return isOutputFailed ? exitOutputFailed : exitReceived;
}

} // namespace KorvelVideo::Host
