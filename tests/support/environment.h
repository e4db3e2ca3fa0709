#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>

namespace keel::test {

// Sets environment variables for a scope and puts the old values back; a null or absent value
// unsets the variable.
class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const char* name, const char* value) {
        Set(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
    ~ScopedEnvironment() {
        for (const auto& [name, value] : m_saved)
            Apply(name, value);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    void Set(const std::string& name, const std::optional<std::string>& value) {
        if (!m_saved.contains(name)) {
            const char* old = std::getenv(name.c_str());
            m_saved[name] = old ? std::optional<std::string>(old) : std::nullopt;
        }
        Apply(name, value);
    }

private:
    static void Apply(const std::string& name, const std::optional<std::string>& value) {
        if (value)
            ::setenv(name.c_str(), value->c_str(), 1);
        else
            ::unsetenv(name.c_str());
    }

    std::map<std::string, std::optional<std::string>> m_saved;
};

inline std::string ReadText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void WriteText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

} // namespace keel::test
