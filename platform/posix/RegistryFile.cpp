#include "RegistryFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <thread>

namespace Platform {

namespace {

// Platform error codes that no caller compares with.
constexpr LSTATUS errorPathNotFound = 3;
constexpr LSTATUS errorGeneralFailure = 31;
constexpr LSTATUS errorLockViolation = 33;
constexpr LSTATUS errorDiskFull = 112;
constexpr LSTATUS errorFileTooLarge = 223;

// A process that holds the lock for longer is stuck, and waiting for it would be a hang.
constexpr std::chrono::seconds longestLockWait{5};

LSTATUS fromErrno(int error) noexcept {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return errorPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
        return ERROR_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
        return errorDiskFull;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    default:
        return errorGeneralFailure;
    }
}

class File {
public:
    File(const std::string& path, int flags) noexcept
        : m_descriptor(open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
    ~File() {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool isOpen() const noexcept { return m_descriptor >= 0; }
    int descriptor() const noexcept { return m_descriptor; }

private:
    const int m_descriptor;
};

// The registry's directory; empty when the environment names none. A program that runs with another user's
// rights gets none either: the environment is not its own, and the registry names code to load.
std::string directory() {
    const char* dataHome = secure_getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && dataHome[0] == '/') {
        return std::string(dataHome) + "/kvnetworkreceiver";
    }
    const char* home = secure_getenv("HOME");
    if (home != nullptr && home[0] == '/') {
        return std::string(home) + "/.local/share/kvnetworkreceiver";
    }
    return {};
}

LSTATUS readWhole(const std::string& path, std::string& content) {
    const File file(path, O_RDONLY);
    if (!file.isOpen()) {
        return errno == ENOENT ? LSTATUS{ERROR_SUCCESS} : fromErrno(errno);
    }
    char block[16384];
    for (;;) {
        const ssize_t length = read(file.descriptor(), block, sizeof block);
        if (length == 0) {
            return ERROR_SUCCESS;
        }
        if (length < 0) {
            if (errno == EINTR) {
                continue;
            }
            return fromErrno(errno);
        }
        content.append(block, static_cast<std::size_t>(length));
        if (content.size() > RegistryTree::longestFile) {
            return errorFileTooLarge;
        }
    }
}

LSTATUS writeWhole(const std::string& path, std::string_view content) {
    const File file(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.isOpen()) {
        return fromErrno(errno);
    }
    while (!content.empty()) {
        const ssize_t length = write(file.descriptor(), content.data(), content.size());
        if (length >= 0) {
            content.remove_prefix(static_cast<std::size_t>(length));
        } else if (errno != EINTR) {
            return fromErrno(errno);
        }
    }
    return fsync(file.descriptor()) == 0 ? LSTATUS{ERROR_SUCCESS} : fromErrno(errno);
}

LSTATUS replaceFile(const std::string& path, std::string_view content) {
    const std::string next = path + ".new";
    LSTATUS result = writeWhole(next, content);
    if (result == ERROR_SUCCESS && std::rename(next.c_str(), path.c_str()) != 0) {
        result = fromErrno(errno);
    }
    if (result != ERROR_SUCCESS) {
        unlink(next.c_str());
    }
    return result;
}

LSTATUS lock(const File& file) {
    if (!file.isOpen()) {
        return fromErrno(errno);
    }
    const auto deadline = std::chrono::steady_clock::now() + longestLockWait;
    while (flock(file.descriptor(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return fromErrno(errno);
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return errorLockViolation;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return ERROR_SUCCESS;
}

LSTATUS readTree(const std::string& path, RegistryTree& tree) {
    std::string content;
    const LSTATUS result = readWhole(path, content);
    if (result == ERROR_SUCCESS) {
        tree = RegistryTree::parse(content);
    }
    return result;
}

} // namespace

LSTATUS readRegistry(RegistryTree& tree) {
    const std::string folder = directory();
    return folder.empty() ? errorPathNotFound : readTree(folder + "/classes", tree);
}

LSTATUS changeRegistry(const std::function<LSTATUS(RegistryTree&)>& change) {
    const std::string folder = directory();
    if (folder.empty()) {
        return errorPathNotFound;
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return fromErrno(error.value());
    }
    const std::string path = folder + "/classes";
    const File lockFile(path + ".lock", O_RDWR | O_CREAT);
    LSTATUS result = lock(lockFile);
    RegistryTree tree;
    if (result == ERROR_SUCCESS) {
        result = readTree(path, tree);
    }
    if (result == ERROR_SUCCESS) {
        result = change(tree);
    }
    if (result != ERROR_SUCCESS) {
        return result;
    }
    const std::string content = tree.format();
    return content.size() <= RegistryTree::longestFile ? replaceFile(path, content) : errorFileTooLarge;
}

} // namespace Platform
