#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/file.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace keel::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Bytes from hex pairs; blanks between them are for reading.
inline Bytes Hex(const char* text) {
    Bytes bytes;
    std::istringstream in(text);
    std::string pair;
    while (in >> pair)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
    return bytes;
}

// The UTF-16 code units of a text, low byte first.
inline Bytes WideUnits(const std::u16string& text) {
    Bytes bytes;
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

// A short wide string as the archive counts it: 0xFF, 0xFFFE, a one-byte length, the units.
inline Bytes WideString(const std::u16string& text) {
    return Concat({{0xFF, 0xFE, 0xFF, static_cast<std::uint8_t>(text.size())}, WideUnits(text)});
}

inline Bytes LittleEndian32(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
            static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

// The record of a class an archive meets for the first time: the new-class tag 0xFFFF, the
// schema, the name's length and the name.
inline Bytes NewClassRecord(std::uint16_t schema, const std::string& name) {
    return Concat(
        {{0xFF, 0xFF, static_cast<std::uint8_t>(schema), static_cast<std::uint8_t>(schema >> 8),
          static_cast<std::uint8_t>(name.size()), static_cast<std::uint8_t>(name.size() >> 8)},
         Bytes(name.begin(), name.end())});
}

// Archive bytes written as words: "text" (quoted as std::quoted reads it) a short wide string of
// its ASCII text, #n a 32-bit number, and anything else one hex byte.
inline Bytes ArchiveText(const std::string& text) {
    Bytes bytes;
    std::istringstream in(text);
    while (in >> std::ws && !in.eof()) {
        std::string word;
        if (in.peek() == '"') {
            in >> std::quoted(word);
            const std::u16string wide(word.begin(), word.end());
            bytes = Concat({bytes, WideString(wide)});
        } else if (in >> word; word[0] == '#') {
            bytes = Concat(
                {bytes, LittleEndian32(static_cast<std::uint32_t>(std::stol(word.substr(1))))});
        } else {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
        }
    }
    return bytes;
}

// What `write` stores, as bytes.
inline Bytes Stored(const std::function<void(CArchive&)>& write, int bufferSize = 4096) {
    CMemFile file;
    CArchive archive(&file, CArchive::store, bufferSize);
    write(archive);
    archive.Close();
    return file.Bytes();
}

// A loading archive over bytes, with the memory file it reads.
struct Loading {
    explicit Loading(Bytes bytes, int bufferSize = 4096, const CString& name = CString(),
                     unsigned schema = CArchive::noSchema)
        : file(std::move(bytes)), archive(Named(file, name), CArchive::load, bufferSize) {
        archive.SetObjectSchema(schema);
    }
    static CMemFile* Named(CMemFile& file, const CString& name) {
        file.SetFilePath(name);
        return &file;
    }
    CMemFile file;
    CArchive archive;
};

// The cause of the archive failure that `action` raises, or `none`; with a file name, the failure
// must name that file.
inline int ArchiveCauseOf(const std::function<void()>& action, const char* fileName = nullptr) {
    try {
        action();
    } catch (const CArchiveException& failure) {
        if (fileName) {
            EXPECT_EQ(failure.m_strFileName, CString(fileName));
            EXPECT_NE(std::string(failure.what()).find(fileName), std::string::npos);
        }
        return failure.m_cause;
    }
    return CArchiveException::none;
}

} // namespace keel::test
