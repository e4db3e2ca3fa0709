#pragma once

// The archive trip both question harnesses check: a set stored at the current schema and loaded
// again stores the same bytes and leaves nothing unread. The default value of a definition is not
// archived, so the sets themselves may differ.
#include "keel/platform/archive.h"
#include "keel/platform/file.h"
#include "keel/questions/propdeftabgroupset.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace keel::fuzz {

constexpr unsigned c_currentQuestionSchema = 110;

inline void Require(bool condition) {
    if (!condition)
        std::abort();
}

inline std::vector<std::uint8_t> Stored(QPropDefTabGroupSet& set) {
    CMemFile file;
    CArchive archive(&file, CArchive::store);
    set.Serialize(archive);
    archive.Close();
    return file.Bytes();
}

inline void CheckArchiveRoundTrip(QPropDefTabGroupSet& set) {
    const std::vector<std::uint8_t> bytes = Stored(set);
    CMemFile file(bytes);
    CArchive archive(&file, CArchive::load);
    archive.SetObjectSchema(c_currentQuestionSchema);
    QPropDefTabGroupSet back;
    back.Serialize(archive);
    Require(archive.IsBufferEmpty());
    Require(Stored(back) == bytes);
}

} // namespace keel::fuzz
