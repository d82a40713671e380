#include "SynchronizationObjects.h"

CKvHandleSyncObject::~CKvHandleSyncObject() {
    if (m_handle != nullptr) {
        CloseHandle(m_handle);
    }
}

bool CKvHandleSyncObject::Wait(std::uint32_t timeout) {
    if (m_handle == nullptr) {
        throw CKvHandleSyncObjectException("CKvHandleSyncObject::Wait -> object not created yet");
    }
    switch (WaitForSingleObject(m_handle, timeout)) {
    case WAIT_ABANDONED:
        throw CKvWaitAbandonnedException("CKvHandleSyncObject::Wait -> WaitForSingleObject returned "
                                         "WAIT_ABANDONED... This might be ok?");
    case WAIT_OBJECT_0:
        return true;
    case WAIT_TIMEOUT:
        return false;
    default:
        throw CKvHandleSyncObjectException(
            "CKvHandleSyncObject::Wait -> error occurred in WaitForSingleObject");
    }
}

void CKvHandleSyncObject::Release() {
    throw CKvHandleSyncObjectException("CKvHandleSyncObject::Release -> this is not a valid call");
}

CKvEvent::CKvEvent(bool manualReset) {
    m_handle = CreateEventA(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr);
    if (m_handle == nullptr) {
        throw CKvEventException("CKvEvent::CKvEvent -> could not create an event");
    }
}

void CKvEvent::Set() {
    if (SetEvent(m_handle) == 0) {
        throw CKvEventException("CKvEvent::Set -> error occurred in SetEvent");
    }
}

void CKvEvent::Reset() {
    if (ResetEvent(m_handle) == 0) {
        throw CKvEventException("CKvEvent::Reset -> error occurred in ResetEvent");
    }
}

CKvThread::~CKvThread() {
    if (m_handle == nullptr) {
        return;
    }
    try {
        static_cast<void>(CKvHandleSyncObject::Wait(INFINITE));
    } catch (const CKvBaseException&) { // NOLINT(bugprone-empty-catch): the handle is closed in every case
    }
}

void CKvThread::Create(Routine routine, void* context, bool createSuspended, std::uint32_t stackSize,
                       bool nullDaclSecurity) {
    if (routine == nullptr) {
        throw CKvThreadException("CKvThread::Create -> invalid thread function pointer");
    }
    if (m_handle != nullptr) {
        throw CKvThreadException("CKvThread::Create -> thread was already created");
    }
    // A present but null access list: every user has full access.
    SECURITY_DESCRIPTOR descriptor{};
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = &descriptor;
    attributes.bInheritHandle = FALSE;

    const unsigned flags =
        (createSuspended ? CREATE_SUSPENDED : 0U) | (stackSize != 0 ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0U);
    m_handle = reinterpret_cast<HANDLE>(_beginthreadex(nullDaclSecurity ? &attributes : nullptr, stackSize,
                                                       routine, context, flags, &m_threadId));
    SetThreadName();
    if (m_handle == nullptr) {
        throw CKvThreadException("CKvThread::Create -> could not create a thread");
    }
}

void CKvThread::SetThreadName() {
    // The record that debuggers read from the exception's arguments.
    constexpr DWORD kNamingException = 0x406D1388;
    const std::array<ULONG_PTR, 3> record{0x1000, reinterpret_cast<ULONG_PTR>(m_name.data()), m_threadId};
    raiseGuardedException(kNamingException, 0, static_cast<DWORD>(record.size()), record.data());
}
