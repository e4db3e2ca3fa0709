#pragma once

#include "keel/questions/propdeftabgroupset.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace keel::test {

// Question definitions as text, one line an object, naming every field that differs from a
// fresh object's: what tests compare a read with, so that no field goes wrong unseen.
template <class Object>
std::string ChangedFields(
    const Object& object,
    const std::vector<std::pair<const char*, std::function<std::string(const Object&)>>>& fields) {
    const Object fresh;
    std::string line;
    for (const auto& [key, field] : fields)
        if (const std::string value = field(object); value != field(fresh))
            line += std::string(" ") + key + "=" + value;
    return line;
}

inline std::string Utf8(const CString& text) {
    return text.ToUtf8();
}

// Control names match without case and share one spelling in the whole process, so they are
// shown in lower case.
inline std::string NameText(ControlId name) {
    std::string text = name.ToString().ToUtf8();
    for (char& ch : text)
        if (ch >= 'A' && ch <= 'Z')
            ch = static_cast<char>(ch - 'A' + 'a');
    return text;
}

inline std::string DefinitionLine(const QPropDef& def) {
    using D = QPropDef;
    const auto number = [](auto value) { return std::to_string(static_cast<long long>(value)); };
    return D::ControlTypeToString(def.ControlType()).ToUtf8() +
           ChangedFields<D>(
               def,
               {{"name", [](const D& d) { return NameText(d.Name()); }},
                {"question", [](const D& d) { return Utf8(d.Question()); }},
                {"type", [](const D& d) { return Utf8(QAnyValue::TypeToString(d.Type())); }},
                {"source",
                 [](const D& d) { return Utf8(D::ComboSourceToString(d.ComboSource())); }},
                {"value", [](const D& d) { return Utf8(D::ComboValueToString(d.ComboValue())); }},
                {"enabled", [](const D& d) { return Utf8(d.EnabledFormula().ToString()); }},
                {"extra", [](const D& d) { return Utf8(d.Extra1()); }},
                {"qwidth", [&](const D& d) { return number(d.QuestionWidth()); }},
                {"awidth", [&](const D& d) { return number(d.AnswerWidth()); }},
                {"action", [](const D& d) { return Utf8(d.Action().ToString()); }},
                {"style", [&](const D& d) { return number(d.Style()); }},
                {"tooltip", [](const D& d) { return Utf8(d.Tooltip()); }},
                {"overlap", [&](const D& d) { return number(d.AllowControlOverlap()); }},
                {"radio", [](const D& d) { return Utf8(D::RadioTypeToString(d.RadioType())); }},
                {"newradiogroup", [&](const D& d) { return number(d.IsNewRadioGroup()); }},
                {"fullwidth", [&](const D& d) { return number(d.IsGroupboxFullWidth()); }},
                {"transparent", [&](const D& d) { return number(d.IsTransparent()); }},
                {"qtweaks", [](const D& d) { return Utf8(d.QuestionSizeTweaks().AsString()); }},
                {"atweaks", [](const D& d) { return Utf8(d.AnswerSizeTweaks().AsString()); }},
                {"default", [](const D& d) {
                     return Utf8(d.DefaultValue().TypeName() + u":" +
                                 d.DefaultValue().AsStringOrFormula());
                 }}});
}

inline std::string TabLines(const QPropDefTab& tab) {
    using T = QPropDefTab;
    std::string lines =
        "  tab " + Utf8(tab.Name()) +
        ChangedFields<T>(
            tab, {{"enabled", [](const T& t) { return Utf8(t.EnabledFormula().ToString()); }},
                  {"alternative",
                   [](const T& t) { return Utf8(t.EnabledAlternativeFormula().ToString()); }},
                  {"action", [](const T& t) { return Utf8(t.Action().ToString()); }},
                  {"onshow", [](const T& t) { return Utf8(t.OnShow().ToString()); }},
                  {"columns", [](const T& t) { return Utf8(t.ColumnSizesAsString()); }},
                  {"template", [](const T& t) { return std::to_string(t.IsFromTemplate()); }},
                  {"library", [](const T& t) { return std::to_string(t.IsFromLibrary()); }}}) +
        "\n";
    for (int i = 0; i < tab.GetCount(); ++i)
        lines += "    " + DefinitionLine(*tab.GetAt(i)) + "\n";
    return lines;
}

inline std::string GroupLines(const QPropDefTabGroup& group) {
    using G = QPropDefTabGroup;
    std::string lines =
        "group " + Utf8(group.Name()) +
        ChangedFields<G>(
            group,
            {{"enabled", [](const G& g) { return Utf8(g.EnabledFormula().ToString()); }},
             {"alternative",
              [](const G& g) { return Utf8(g.EnabledAlternativeFormula().ToString()); }},
             {"format", [](const G& g) { return std::to_string(g.Format()); }},
             {"rowlocked", [](const G& g) { return std::to_string(g.IsRowLocked()); }},
             {"vlt", [](const G& g) { return Utf8(g.DefaultVlt()); }},
             {"quoteheadings", [](const G& g) { return std::to_string(g.QuoteRowHeadings()); }},
             {"sortrows", [](const G& g) { return std::to_string(g.AutoSortRows()); }}}) +
        "\n";
    for (int i = 0; i < group.GetCount(); ++i)
        lines += TabLines(*group.GetAt(i));
    return lines;
}

inline std::string SetLines(const QPropDefTabGroupSet& set) {
    std::string lines = "minimumwidth=" + std::to_string(set.MinimumWidth()) + "\n";
    for (int i = 0; i < set.GetCount(); ++i)
        lines += GroupLines(*set.GetAt(i));
    return lines;
}

} // namespace keel::test
