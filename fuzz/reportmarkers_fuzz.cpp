// Reads fuzzed reports for their markers, as a document does before it starts a report, and
// checks what holds for any report: a value is one trimmed line, the parameter names split again
// into themselves, and a report that cannot be read says why and gives nothing.
//
// Input: a first byte that chooses the kind of report (even: a text report, odd: an RDL report),
// then the bytes of the report file.

#include "keel/document/doc.h"
#include "keel/document/errorlog.h"
#include "keel/document/reportmarkers.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using keel::CString;

constexpr std::size_t c_maxInput = 1 << 16;

void Require(bool condition) {
    if (!condition)
        __builtin_trap();
}

bool IsOneTrimmedLine(const CString& value) {
    if (value.FindOneOf(u"\r\n") >= 0)
        return false;
    if (value.IsEmpty())
        return true;
    CString trimmed = value;
    return trimmed.Trim() == value;
}

void CheckNames(const CString& params) {
    const std::vector<CString> names = keel::ReportParameterNames(params);
    for (const CString& name : names)
        Require(!name.IsEmpty() && name.FindOneOf(u",; \t") < 0);
    CString joined;
    for (const CString& name : names)
        joined += (joined.IsEmpty() ? CString() : CString(u",")) + name;
    Require(keel::ReportParameterNames(joined) == names);
}

// The folder of the report files, made once for the run and removed at its end.
const std::string& Folder() {
    static const std::string& folder = *[] {
        auto* made = new std::string("/tmp/keel-reportmarkers-XXXXXX");
        Require(mkdtemp(made->data()) != nullptr);
        keel::TheErrorLog().SetFilename(CString::FromUtf8(*made + "/errors.txt"));
        std::atexit([] { std::filesystem::remove_all(Folder()); });
        return made;
    }();
    return folder;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > c_maxInput)
        return 0;
    const bool rdl = (data[0] & 1) != 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);

    keel::QReportMarkers markers;
    CString error;
    if (rdl) {
        const bool read = keel::QReportMarkers::FromRDL(bytes, markers, error);
        Require(read == error.IsEmpty());
        Require(read ||
                (markers.images.IsEmpty() && markers.filter.IsEmpty() && markers.params.IsEmpty()));
    } else {
        markers = keel::QReportMarkers::FromText(bytes);
        Require(IsOneTrimmedLine(markers.images) && IsOneTrimmedLine(markers.filter) &&
                IsOneTrimmedLine(markers.params));
    }
    CheckNames(markers.params);

    // The same through the document, from a file.
    const std::string path = Folder() + (rdl ? "/report.rdl" : "/report.rtx");
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<long>(bytes.size()));
    keel::QDoc document;
    CString filter;
    CString params;
    const CString images =
        document.GetReportImagesFilterAndParamsStrings(CString::FromUtf8(path), filter, params);
    // A text report that starts as a compound file is read from its summary instead.
    const bool compound = bytes.starts_with("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1");
    Require(compound ||
            (images == markers.images && filter == markers.filter && params == markers.params));
    Require(document.GetLastReportReadError().IsEmpty() == error.IsEmpty());
    keel::TheErrorLog().DiscardPendingMessages();
    return 0;
}
