#include "DeferredWork.h"

#include <utility>

#include "CKvUnknown.h"
#include "CallbackScope.h"
#include "Logging.h"

namespace KorvelVideo::Network {

namespace {
std::mutex g_listLock;
std::shared_ptr<DeferredWork> g_first;
} // namespace

void DeferredWork::start(std::shared_ptr<DeferredWork> work) noexcept {
    sweep();
    addLiveObject();
    try {
        work->m_thread.Create(threadRoutine, work.get(), false, 0, false);
        work->m_hasThread = true;
    } catch (...) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "No thread for deferred work; it is done later.");
    }
    keep(std::move(work));
}

void DeferredWork::wait() noexcept {
    if (!m_hasThread) {
        runOnce();
    } else if (!waitForThread(INFINITE)) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "Could not wait for deferred work.");
    }
}

void DeferredWork::sweep() noexcept {
    std::shared_ptr<DeferredWork> work;
    {
        const std::lock_guard lock(g_listLock);
        work.swap(g_first);
    }
    while (work != nullptr) {
        std::shared_ptr<DeferredWork> next = std::move(work->m_next);
        if (work->isDone()) {
            work.reset();
            removeLiveObject();
        } else {
            keep(std::move(work));
        }
        work = std::move(next);
    }
}

unsigned DeferredWork::threadRoutine(void* work) {
    static_cast<DeferredWork*>(work)->run();
    return 0;
}

void DeferredWork::keep(std::shared_ptr<DeferredWork> work) noexcept {
    const std::lock_guard lock(g_listLock);
    work->m_next = std::move(g_first);
    g_first = std::move(work);
}

bool DeferredWork::waitForThread(std::uint32_t milliseconds) noexcept {
    try {
        return m_thread.Wait(milliseconds);
    } catch (...) {
        return false;
    }
}

void DeferredWork::runOnce() noexcept {
    const std::lock_guard lock(m_runLock);
    if (!m_ran) {
        m_ran = true;
        run();
    }
}

bool DeferredWork::isDone() noexcept {
    if (m_hasThread) {
        return waitForThread(0);
    }
    if (CallbackScope::isActive()) {
        return false; // what is inside a callback now cannot do it either
    }
    runOnce();
    return true;
}

} // namespace KorvelVideo::Network
