// Reads arbitrary bytes through a loading archive. The first byte sets how many operation codes
// follow, the second the buffer size; the operations then repeat over the rest of the input until
// the archive reports a failure. Only CArchiveException may come out; every string and count
// that is read must also survive being written and read again.
#include "keel/platform/archive.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using keel::CArchive;
using keel::CArchiveException;
using keel::CMemFile;
using keel::CString;

void Require(bool condition) {
    if (!condition)
        std::abort();
}

void CheckStringRoundTrip(const CString& text) {
    CMemFile file;
    {
        CArchive storing(&file, CArchive::store);
        storing << text;
        storing.Close();
    }
    file.SeekToBegin();
    CArchive loading(&file, CArchive::load);
    CString back;
    loading >> back;
    Require(back == text);
    Require(loading.IsBufferEmpty());
}

void CheckCountRoundTrip(std::uint64_t count) {
    CMemFile file;
    {
        CArchive storing(&file, CArchive::store);
        storing.WriteCount(count);
        storing.Close();
    }
    file.SeekToBegin();
    CArchive loading(&file, CArchive::load);
    Require(loading.ReadCount() == count);
}

template <class T>
void ReadValue(CArchive& archive) {
    T value{};
    archive >> value;
}

void RunOperation(CArchive& archive, std::uint8_t code) {
    switch (code % 12) {
    case 0: {
        CString text;
        archive >> text;
        CheckStringRoundTrip(text);
        break;
    }
    case 1:
        CheckCountRoundTrip(archive.ReadCount());
        break;
    case 2:
        ReadValue<bool>(archive);
        break;
    case 3:
        ReadValue<std::uint8_t>(archive);
        break;
    case 4:
        ReadValue<std::int16_t>(archive);
        break;
    case 5:
        ReadValue<char16_t>(archive);
        break;
    case 6:
        ReadValue<std::int32_t>(archive);
        break;
    case 7:
        ReadValue<std::uint64_t>(archive);
        break;
    case 8:
        ReadValue<float>(archive);
        break;
    case 9:
        ReadValue<double>(archive);
        break;
    case 10: {
        std::uint8_t bytes[37];
        if (archive.Read(bytes, sizeof bytes) < sizeof bytes)
            throw CArchiveException(CArchiveException::endOfFile);
        break;
    }
    default:
        archive.Flush();
        ReadValue<std::int8_t>(archive);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static constexpr int kBufferSizes[] = {1, 3, 16, 4096};
    if (size < 2)
        return 0;
    const std::size_t operationCount = std::min<std::size_t>(data[0] % 16 + 1, size - 2);
    const int bufferSize = kBufferSizes[data[1] % 4];
    const std::vector<std::uint8_t> operations(data + 2, data + 2 + operationCount);
    CMemFile file(data + 2 + operationCount, size - 2 - operationCount);
    CArchive archive(&file, CArchive::load, bufferSize);
    try {
        // Every operation consumes at least one byte or fails, so this ends with the input.
        for (std::size_t step = 0;; ++step)
            RunOperation(archive, operations.empty() ? 0 : operations[step % operations.size()]);
    } catch (const CArchiveException&) {
    }
    return 0;
}
