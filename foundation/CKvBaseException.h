#pragma once

#include <string>

// The root of the exceptions that carry a message: misuse of a smart pointer and failures of the operating
// system's synchronisation calls. The message names the class and the operation, then " -> " and what failed.
class CKvBaseException {
public:
    explicit CKvBaseException(const char* message) : m_message(message) {}
    CKvBaseException(const CKvBaseException&) = default;
    CKvBaseException& operator=(const CKvBaseException&) = default;
    virtual ~CKvBaseException() = default;

    [[nodiscard]] const char* getMessage() const noexcept { return m_message.c_str(); }

private:
    std::string m_message;
};

// TKvSmartPtr was misused.
class CKvSmartPointerException : public CKvBaseException {
public:
    using CKvBaseException::CKvBaseException;
};

// A wait failed, or an operation is not valid on an event or a thread.
class CKvHandleSyncObjectException : public CKvBaseException {
public:
    using CKvBaseException::CKvBaseException;
};

// A wait ended because the object was abandoned.
class CKvWaitAbandonnedException : public CKvHandleSyncObjectException {
public:
    using CKvHandleSyncObjectException::CKvHandleSyncObjectException;
};

// An event could not be created, set or reset.
class CKvEventException : public CKvHandleSyncObjectException {
public:
    using CKvHandleSyncObjectException::CKvHandleSyncObjectException;
};

// A thread could not be started.
class CKvThreadException : public CKvHandleSyncObjectException {
public:
    using CKvHandleSyncObjectException::CKvHandleSyncObjectException;
};
