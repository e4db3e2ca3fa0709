#include "keel/document/reportmarkers.h"

#include "keel/exchange/xmldoc.h"
#include "keel/values/array.h"

#include <algorithm>
#include <array>
#include <string>
#include <unordered_set>

namespace keel {

namespace {

constexpr std::string_view kDesignerNamespace =
    "http://schemas.microsoft.com/SQLServer/reporting/reportdesigner";
constexpr const char16_t* kImagesParameter = u"KVNImages";
constexpr const char16_t* kFilterParameter = u"KVNFilter";

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view SkipBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    return text;
}

// A line whose first word is "rem", in any case.
bool IsRemLine(std::string_view line) {
    line = SkipBlanks(line);
    if (line.size() < 3)
        return false;
    for (std::size_t i = 0; i < 3; ++i) {
        if ((line[i] | 0x20) != "rem"[i])
            return false;
    }
    return line.size() == 3 || IsBlank(line[3]);
}

// Takes each marker once from the lines it is shown, into the fields it is given.
class MarkerScanner {
public:
    explicit MarkerScanner(std::array<CString*, 3> values) : m_values(values) {
        for (std::size_t i = 0; i < m_values.size(); ++i)
            m_taken[i] = !m_values[i]->IsEmpty();
    }

    bool AllTaken() const {
        return std::all_of(m_taken.begin(), m_taken.end(), [](bool taken) { return taken; });
    }

    // Reads the lines of `text` until every marker was taken; with `remLinesOnly` only the
    // comment lines count.
    void ScanLines(std::string_view text, bool remLinesOnly) {
        while (!text.empty() && !AllTaken()) {
            const std::size_t end = text.find_first_of("\r\n");
            const std::string_view line = text.substr(0, end);
            if (!remLinesOnly || IsRemLine(line))
                TakeFromLine(line);
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        }
    }

private:
    // The first marker that appears on the line is the line's, when it was not taken before.
    void TakeFromLine(std::string_view line) {
        static const std::array<std::string, 3> markers = {
            CString(QReportMarkers::c_imagesMarker).ToUtf8(),
            CString(QReportMarkers::c_filterMarker).ToUtf8(),
            CString(QReportMarkers::c_paramsMarker).ToUtf8()};
        std::size_t first = std::string_view::npos;
        std::size_t which = 0;
        for (std::size_t i = 0; i < markers.size(); ++i) {
            const std::size_t at = line.find(markers[i]);
            if (at < first) {
                first = at;
                which = i;
            }
        }
        if (first == std::string_view::npos || m_taken[which])
            return;
        *m_values[which] = CString::FromUtf8(line.substr(first + markers[which].size())).Trim();
        m_taken[which] = true;
    }

    std::array<CString*, 3> m_values;
    std::array<bool, 3> m_taken{};
};

// Names in the order they first come, each once.
class UniqueNames {
public:
    void Add(const CString& name) {
        if (m_seen.insert(std::u16string(name.View())).second)
            m_names.push_back(name);
    }
    void Add(const std::vector<CString>& names) {
        for (const CString& name : names)
            Add(name);
    }
    const std::vector<CString>& Names() const { return m_names; }
    CString Joined() const {
        CString joined;
        for (const CString& name : m_names)
            joined += (joined.IsEmpty() ? CString() : CString(u",")) + name;
        return joined;
    }

private:
    std::vector<CString> m_names;
    std::unordered_set<std::u16string> m_seen;
};

// Parses the report and makes its namespace usable in paths, as the prefix "rdl:" (with "rd:"
// for the designer's); the prefix is empty for a report in no namespace.
bool OpenRDL(std::string_view bytes, QXMLDoc& document, CString& prefix, CString& error) {
    if (!document.FromBytes(bytes)) {
        error = document.GetParseError();
        return false;
    }
    const CString reportNamespace = document.RootNode()->GetNamespaceURI();
    prefix.Empty();
    if (reportNamespace.IsEmpty())
        return true;
    const std::string uri = reportNamespace.ToUtf8();
    const char quote = uri.find('\'') == std::string::npos ? '\'' : '"';
    const std::string declarations = "xmlns:rdl=" + std::string(1, quote) + uri + quote +
                                     " xmlns:rd='" + std::string(kDesignerNamespace) + "'";
    if (!document.SetSelectionNamespaces(CString::FromUtf8(declarations))) {
        error = CString(u"the report's namespace cannot be used in paths: ") + reportNamespace;
        return false;
    }
    prefix = u"rdl:";
    return true;
}

} // namespace

QReportMarkers QReportMarkers::FromText(std::string_view text) {
    QReportMarkers markers;
    MarkerScanner(std::array<CString*, 3>{&markers.images, &markers.filter, &markers.params})
        .ScanLines(text, true);
    return markers;
}

bool QReportMarkers::FromRDL(std::string_view bytes, QReportMarkers& markers, CString& error) {
    markers = QReportMarkers();
    error.Empty();
    QXMLDoc document;
    CString prefix;
    if (!OpenRDL(bytes, document, prefix, error))
        return false;
    const QSmartPtr<QXMLNode> root = document.RootNode();

    UniqueNames names;
    QArray<QSmartPtr<QXMLNode>> nodes;
    root->GetNodes(prefix + u"ReportParameters/" + prefix + u"ReportParameter", nodes);
    const CString valuePath = prefix + u"DefaultValue/" + prefix + u"Values/" + prefix + u"Value";
    for (int i = 0; i < nodes.GetSize(); ++i) {
        const CString name = nodes[i]->GetAttribute(u"Name");
        const QSmartPtr<QXMLNode> value = nodes[i]->GetFirstNode(valuePath);
        const CString text = value ? value->GetText().Trim() : CString();
        if (name == kImagesParameter) {
            if (markers.images.IsEmpty())
                markers.images = text;
        } else if (name == kFilterParameter) {
            if (markers.filter.IsEmpty())
                markers.filter = text;
        } else if (!name.IsEmpty()) {
            names.Add(name);
        }
    }

    CString queryParams;
    MarkerScanner scanner(std::array<CString*, 3>{&markers.images, &markers.filter, &queryParams});
    root->GetNodes(prefix + u"DataSets/" + prefix + u"DataSet/" + prefix + u"Query/" + prefix +
                       u"CommandText",
                   nodes);
    for (int i = 0; i < nodes.GetSize() && !scanner.AllTaken(); ++i)
        scanner.ScanLines(nodes[i]->GetText().ToUtf8(), false);
    names.Add(ReportParameterNames(queryParams));
    markers.params = names.Joined();
    return true;
}

CString ReportDescriptionFromRDL(std::string_view bytes) {
    QXMLDoc document;
    CString prefix;
    CString error;
    if (!OpenRDL(bytes, document, prefix, error))
        return CString();
    const QSmartPtr<QXMLNode> description =
        document.RootNode()->GetFirstNode(prefix + u"Description");
    return description ? description->GetText() : CString();
}

std::vector<CString> ReportParameterNames(const CString& params) {
    UniqueNames names;
    const std::u16string_view text = params.View();
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find_first_of(u",; \t", start);
        const std::size_t stop = end == std::u16string_view::npos ? text.size() : end;
        if (stop > start)
            names.Add(CString(text.substr(start, stop - start)));
        start = stop + 1;
    }
    return names.Names();
}

} // namespace keel
