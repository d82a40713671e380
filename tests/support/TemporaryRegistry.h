#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace KvTest {

// Sets a variable of the environment, or removes it when `value` is null; before a test starts threads.
inline void setVariable(const char* name, const char* value) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
    static_cast<void>(value != nullptr ? setenv(name, value, 1) : unsetenv(name));
}

// A fresh directory that holds the class registry while it lives.
class TemporaryRegistry {
public:
    TemporaryRegistry() {
        std::string name = (std::filesystem::temp_directory_path() / "kvregistry-XXXXXX").string();
        m_directory = mkdtemp(name.data()) != nullptr ? name : std::string();
        setVariable("XDG_DATA_HOME", m_directory.c_str());
    }
    ~TemporaryRegistry() {
        setVariable("XDG_DATA_HOME", nullptr);
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }
    TemporaryRegistry(const TemporaryRegistry&) = delete;
    TemporaryRegistry& operator=(const TemporaryRegistry&) = delete;

    const std::filesystem::path& directory() const noexcept { return m_directory; }
    std::filesystem::path file() const { return m_directory / "kvnetworkreceiver" / "classes"; }

private:
    std::filesystem::path m_directory;
};

} // namespace KvTest
