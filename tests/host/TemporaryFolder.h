#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

// A folder of its own for one test, removed at its end.
class TemporaryFolder {
public:
    TemporaryFolder() : m_path((std::filesystem::temp_directory_path() / "kvtest-XXXXXX").string()) {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("mkdtemp");
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] std::string read(const std::string& name) const {
        std::ifstream file(m_path + "/" + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string m_path;
};
