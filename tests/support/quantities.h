#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/file.h"
#include "keel/values/length.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes DoubleBytes(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    Bytes bytes;
    for (int i = 0; i < 8; ++i)
        bytes.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
    return bytes;
}

inline Bytes Int32Bytes(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    return {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
            static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 24)};
}

// The bytes a value writes to an archive.
template <class Value>
Bytes Stored(const Value& value) {
    CMemFile file;
    file.SetFilePath(u"stored.drw");
    CArchive archive(&file, CArchive::store);
    archive << value;
    archive.Close();
    return file.Bytes();
}

// Reads `value` from `bytes` under the archive schema `schema` (CArchive::noSchema: none); the
// reader must take every byte.
template <class Value>
void LoadInto(const Bytes& bytes, unsigned schema, Value& value) {
    CMemFile file(bytes);
    file.SetFilePath(u"loaded.drw");
    CArchive archive(&file, CArchive::load);
    archive.SetObjectSchema(schema);
    archive >> value;
    EXPECT_TRUE(archive.IsBufferEmpty()) << "the reader left bytes behind";
}

template <class Value>
Value Loaded(const Bytes& bytes, unsigned schema = 0) {
    Value value;
    LoadInto(bytes, schema, value);
    return value;
}

// What the guard of doubles reported, most recent last.
struct LimitDoubleReports {
    static inline std::vector<std::string> reported;
    static inline std::vector<std::string> files;

    static void Report(CArchive& archive, const CString& what) {
        reported.push_back(what.ToUtf8());
        files.push_back(archive.GetFileName().ToUtf8());
    }
    static void Install() {
        reported.clear();
        files.clear();
        SetLimitDoubleFailedReporter(Report);
    }
};

// Clears the hooks of the guard of doubles for one test and puts the previous ones back.
class LimitDoubleHooksGuard {
public:
    LimitDoubleHooksGuard() = default;
    ~LimitDoubleHooksGuard() {
        SetLimitDoubleTrace(m_trace);
        SetLimitDoubleFailedReporter(m_reporter);
    }
    LimitDoubleHooksGuard(const LimitDoubleHooksGuard&) = delete;
    LimitDoubleHooksGuard& operator=(const LimitDoubleHooksGuard&) = delete;

private:
    LimitDoubleTrace m_trace = SetLimitDoubleTrace(nullptr);
    LimitDoubleFailedReporter m_reporter = SetLimitDoubleFailedReporter(nullptr);
};

} // namespace keel::test
