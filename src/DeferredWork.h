#pragma once

#include <memory>
#include <mutex>

#include "SynchronizationObjects.h"

namespace KorvelVideo::Network {

// Work that cannot be done inside a callback, because it waits for that callback to return. It runs once, on
// a thread of its own. A live object of the module is held until the thread has ended, so that the module
// stays loaded.
class DeferredWork {
public:
    DeferredWork() = default;
    DeferredWork(const DeferredWork&) = delete;
    DeferredWork& operator=(const DeferredWork&) = delete;
    virtual ~DeferredWork() = default;

    // Hands `work` over and returns. When no thread can be had it is kept, and done by the first that waits
    // for it or sweeps.
    static void start(std::shared_ptr<DeferredWork> work) noexcept;

    // Returns when the work is done. Not from inside a callback, nor from the work itself.
    void wait() noexcept;

    // Lets go of all work that is done, with its live object. Called whenever work is started and whenever
    // the module is asked whether it may be unloaded.
    static void sweep() noexcept;

private:
    virtual void run() noexcept = 0;

    static unsigned threadRoutine(void* work);
    static void keep(std::shared_ptr<DeferredWork> work) noexcept;
    [[nodiscard]] bool waitForThread(std::uint32_t milliseconds) noexcept;
    void runOnce() noexcept;
    [[nodiscard]] bool isDone() noexcept;

    bool m_hasThread = false; // constant once the work is handed over
    CKvThread m_thread;
    std::mutex m_runLock; // guards m_ran, held while the work runs without a thread
    bool m_ran = false;
    std::shared_ptr<DeferredWork> m_next; // in the list of all that was handed over
};

} // namespace KorvelVideo::Network
