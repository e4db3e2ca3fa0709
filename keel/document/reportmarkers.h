#pragma once

#include "keel/platform/cstring.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace keel {

// What a report file asks of the program that produces it: the pictures to write into the report
// database first, the filter of its records and the names of the parameters that the document
// fills in. A report says so through markers followed by their values.
//
// A text report carries them on comment lines, whose first word is "rem" in any case:
//   rem KVNImages: Plan,Elevation
// The value runs from the marker to the end of the line, trimmed of blanks; a line carries one
// marker (the first that appears on it), each marker is taken once, and reading stops when all
// three have come.
//
// An RDL report is XML in the namespace its root declares. The report parameters named
// "KVNImages" and "KVNFilter" give those values from their default value; the other parameters
// are the parameters of the report, in order. The query text of the data sets is read for the
// three markers too, one a line as in a text report (without the need for "rem"), for what the
// parameters left open; its parameter names join those of the parameters.
struct QReportMarkers {
    static constexpr const char16_t* c_imagesMarker = u"KVNImages:";
    static constexpr const char16_t* c_filterMarker = u"KVNFilter:";
    static constexpr const char16_t* c_paramsMarker = u"KVNParams:";
    // The most of a report file that is read for its markers.
    static constexpr std::size_t c_maxReportBytes = std::size_t{16} << 20;

    CString images;
    CString filter;
    CString params;

    static QReportMarkers FromText(std::string_view text);
    // False, with why in `error`, when the bytes are not an XML document.
    static bool FromRDL(std::string_view bytes, QReportMarkers& markers, CString& error);
};

// The description of an RDL report; empty when it has none or is not XML.
CString ReportDescriptionFromRDL(std::string_view bytes);

// The parameter names of a params value: separated by commas, semicolons or blanks, each once,
// in the order they first come.
std::vector<CString> ReportParameterNames(const CString& params);

} // namespace keel
