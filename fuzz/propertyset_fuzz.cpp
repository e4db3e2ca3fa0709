// Reads arbitrary bytes as a property set stream. A stream that reads must write, and what it
// writes must read again and write the same bytes: the second pass is the canonical form.
#include "keel/document/olepropertyset.h"
#include "keel/platform/file.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

void Require(bool condition) {
    if (!condition)
        std::abort();
}

std::vector<std::uint8_t> Written(keel::CPropertySet& set) {
    keel::CMemFile file;
    Require(set.WriteToStream(file));
    return file.Bytes();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    keel::CMemFile input(data, size);
    keel::CPropertySet set;
    if (!set.ReadFromStream(input)) {
        Require(set.GetCount() == 0);
        return 0;
    }
    const std::vector<std::uint8_t> first = Written(set);
    keel::CMemFile again(first);
    keel::CPropertySet reread;
    Require(reread.ReadFromStream(again));
    Require(Written(reread) == first);
    return 0;
}
