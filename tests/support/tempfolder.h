#pragma once

#include "tests/support/environment.h"

#include "keel/platform/cstring.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {

using Bytes = std::vector<std::uint8_t>;

// A fresh folder under the temporary folder for each test, removed with everything in it (write
// permission given back first) when the test ends.
class TempFolderTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-test-XXXXXX");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_root = pattern;
    }
    void TearDown() override {
        namespace fs = std::filesystem;
        std::error_code error;
        fs::permissions(m_root, fs::perms::owner_all, fs::perm_options::add, error);
        for (const auto& entry : fs::recursive_directory_iterator(m_root, error)) {
            if (entry.is_directory(error) && !entry.is_symlink(error))
                fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, error);
        }
        fs::remove_all(m_root, error);
    }

    std::string Path(const std::string& name) const { return (m_root / name).string(); }
    CString PathOf(const std::string& name) const { return CString::FromUtf8(Path(name)); }
    void WriteBytes(const std::string& name, const Bytes& bytes) const {
        WriteText(m_root / name, std::string(bytes.begin(), bytes.end()));
    }
    Bytes ReadBytes(const std::string& name) const {
        const std::string text = ReadText(m_root / name);
        return Bytes(text.begin(), text.end());
    }
    // The names in a folder, sorted.
    std::vector<std::string> Listing(const std::string& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_root / folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    std::filesystem::path m_root;
};

// A temporary folder that is also the home of the test, with the configuration and data folders
// of the desktop under it ("config" and "data").
class HomeFolderTest : public TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        m_environment.Set("HOME", m_root.string());
        m_environment.Set("XDG_CONFIG_HOME", Path("config"));
        m_environment.Set("XDG_DATA_HOME", Path("data"));
    }

    ScopedEnvironment m_environment;
};

} // namespace keel::test
