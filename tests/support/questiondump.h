#pragma once

#include "tests/support/archivebytes.h"
#include "tests/support/paths.h"

#include "keel/questions/propdeftabgroupset.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace keel::test {

// Question definitions as text, one line an object, naming every field that differs from a
// fresh object's: what tests compare a read with, so that no field goes wrong unseen.
using Fields = std::vector<std::pair<const char*, std::string>>;

template <class Object>
std::string ChangedFields(const Object& object, Fields (*fields)(const Object&)) {
    const Fields fresh = fields(Object());
    const Fields mine = fields(object);
    std::string line;
    for (std::size_t i = 0; i < mine.size(); ++i)
        if (mine[i].second != fresh[i].second)
            line += std::string(" ") + mine[i].first + "=" + mine[i].second;
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

inline Fields DefinitionFields(const QPropDef& d) {
    using D = QPropDef;
    return {{"name", NameText(d.Name())},
            {"question", Utf8(d.Question())},
            {"type", Utf8(QAnyValue::TypeToString(d.Type()))},
            {"source", Utf8(D::ComboSourceToString(d.ComboSource()))},
            {"value", Utf8(D::ComboValueToString(d.ComboValue()))},
            {"enabled", Utf8(d.EnabledFormula().ToString())},
            {"extra", Utf8(d.Extra1())},
            {"qwidth", std::to_string(d.QuestionWidth())},
            {"awidth", std::to_string(d.AnswerWidth())},
            {"action", Utf8(d.Action().ToString())},
            {"style", std::to_string(d.Style())},
            {"tooltip", Utf8(d.Tooltip())},
            {"overlap", std::to_string(d.AllowControlOverlap())},
            {"radio", Utf8(D::RadioTypeToString(d.RadioType()))},
            {"newradiogroup", std::to_string(d.IsNewRadioGroup())},
            {"fullwidth", std::to_string(d.IsGroupboxFullWidth())},
            {"transparent", std::to_string(d.IsTransparent())},
            {"qtweaks", Utf8(d.QuestionSizeTweaks().AsString())},
            {"atweaks", Utf8(d.AnswerSizeTweaks().AsString())},
            {"default",
             Utf8(d.DefaultValue().TypeName() + u":" + d.DefaultValue().AsStringOrFormula())}};
}

inline std::string DefinitionLine(const QPropDef& def) {
    return QPropDef::ControlTypeToString(def.ControlType()).ToUtf8() +
           ChangedFields(def, &DefinitionFields);
}

inline Fields TabFields(const QPropDefTab& t) {
    return {{"enabled", Utf8(t.EnabledFormula().ToString())},
            {"alternative", Utf8(t.EnabledAlternativeFormula().ToString())},
            {"action", Utf8(t.Action().ToString())},
            {"onshow", Utf8(t.OnShow().ToString())},
            {"columns", Utf8(t.ColumnSizesAsString())},
            {"template", std::to_string(t.IsFromTemplate())},
            {"library", std::to_string(t.IsFromLibrary())}};
}

inline std::string TabLines(const QPropDefTab& tab) {
    std::string lines = "  tab " + Utf8(tab.Name()) + ChangedFields(tab, &TabFields) + "\n";
    for (int i = 0; i < tab.GetCount(); ++i)
        lines += "    " + DefinitionLine(*tab.GetAt(i)) + "\n";
    return lines;
}

inline Fields GroupFields(const QPropDefTabGroup& g) {
    return {{"enabled", Utf8(g.EnabledFormula().ToString())},
            {"alternative", Utf8(g.EnabledAlternativeFormula().ToString())},
            {"format", std::to_string(g.Format())},
            {"rowlocked", std::to_string(g.IsRowLocked())},
            {"vlt", Utf8(g.DefaultVlt())},
            {"quoteheadings", std::to_string(g.QuoteRowHeadings())},
            {"sortrows", std::to_string(g.AutoSortRows())}};
}

inline std::string GroupLines(const QPropDefTabGroup& group) {
    std::string lines = "group " + Utf8(group.Name()) + ChangedFields(group, &GroupFields) + "\n";
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

// An object read from the bytes by the archive at the schema, which must read every byte.
template <class T>
T LoadAt(const Bytes& bytes, int schema) {
    T object;
    Loading loading(bytes, 4096, CString(), static_cast<unsigned>(schema));
    object.Serialize(loading.archive);
    EXPECT_TRUE(loading.archive.IsBufferEmpty()) << "every byte is read, schema " << schema;
    return object;
}

template <class T>
Bytes Store(T& object) {
    return Stored([&object](CArchive& archive) { object.Serialize(archive); });
}

// The rows of a file of cases in tests/data/, one a line, their fields separated by " | ";
// blank lines and lines that open with "#" are left out.
inline std::vector<std::vector<std::string>> CaseRows(const std::string& name) {
    std::ifstream in(TestDataFolder() + "/" + name);
    EXPECT_TRUE(in.is_open()) << name;
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::vector<std::string>& fields = rows.emplace_back();
        std::size_t start = 0;
        for (std::size_t at; (at = line.find(" | ", start)) != std::string::npos; start = at + 3)
            fields.push_back(line.substr(start, at - start));
        fields.push_back(line.substr(start));
    }
    return rows;
}

} // namespace keel::test
