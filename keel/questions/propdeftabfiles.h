#pragma once

// Helpers that the tab, the group and the set share: unique names, attributes read through the
// substitution pass, and the failure of a legacy question file.

#include "keel/exchange/importattribute.h"
#include "keel/exchange/importformatlevel.h"
#include "keel/questions/propdef.h"
#include "keel/values/smartptr.h"

#include <functional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace keel::propdeftab_files {

// The title of the boxes of question files.
inline constexpr char16_t c_defineQuestions[] = u"Define Questions";
// The most children of one kind that one import level builds, whatever the file holds.
inline constexpr int c_mostNewChildren = 100000;

// `base` is number 1 of a family of names, "base 2", "base 3", ... the others; the number of
// `name` in the family, or 0 when it is not one of them.
int NumberInFamily(const CString& name, const CString& base);

// `base`, else "base 2", "base 3", ... whichever no item is named first. One pass over the
// items, so naming stays linear however many there are.
template <class Named>
CString FirstFreeNumberedName(const CString& base, const QSmartPtrArray<Named>& items) {
    // Of n items one of the numbers 1 to n + 1 is free.
    std::vector<bool> taken(static_cast<std::size_t>(items.GetSize()) + 2, false);
    for (int i = 0; i < items.GetSize(); ++i) {
        const int number = items[i] ? NumberInFamily(items[i]->Name(), base) : 0;
        if (number > 0 && static_cast<std::size_t>(number) < taken.size())
            taken[static_cast<std::size_t>(number)] = true;
    }
    int free = 1;
    while (taken[static_cast<std::size_t>(free)])
        ++free;
    return free == 1 ? base : base + CString::Formatted(u" %d", free);
}

// The first item of each name, found by name: the items must outlive it.
template <class Named>
std::unordered_map<std::u16string_view, const Named*>
FirstOfEachName(const QSmartPtrArray<Named>& items) {
    std::unordered_map<std::u16string_view, const Named*> byName;
    byName.reserve(static_cast<std::size_t>(items.GetSize()));
    for (int i = 0; i < items.GetSize(); ++i)
        if (items[i])
            byName.emplace(items[i]->Name().View(), items[i].Get());
    return byName;
}

template <class T>
bool ImportSubstituted(QImportFormatLevel& level, const char16_t* name, T& target) {
    CString (*substitute)(const CString&) = &QPropDef::SubstituteValues;
    return level.ImportAttributeIfPresent(
        QImportAttrWithSubstitutions<T>(name, target, substitute));
}

// A formula comes in the formula's place of the file, or as the text of the value.
inline bool ImportSubstitutedFormula(QImportFormatLevel& level, const char16_t* name,
                                     FormulaText& target) {
    CString (*substitute)(const CString&) = &QPropDef::SubstituteValues;
    return level.ImportAttributeIfPresent(
        QImportAttrWithSubstitutions<FormulaText>(name, target, substitute, &target));
}

// Reports a malformed question file and gives up the whole read.
[[noreturn]] void FailLegacyRead(const CString& message);

// The fields of one line of a question file after its leading marker, each substituted.
QArray<CString> LegacyFields(const CString& line, int first, const QArray<CString>& values,
                             const QArray<CString>& names);

// Reads a count of items from an archive, refused when that many items of at least
// `leastBytesEach` bytes cannot fit in what is left of the file.
int ReadCheckedCount(CArchive& archive, unsigned leastBytesEach);

// Reads a question file into `object` with the substitution arrays set around the read: a
// ".viq" through `readLegacy` (UTF-8, or code page 1252 when the bytes are not UTF-8), any
// other kind through the import. A malformed legacy file throws after its report.
bool ReadQuestionFile(const CString& path, const QArray<CString>& values,
                      const QArray<CString>& names, QImportable& object,
                      const std::function<bool(CStdioFileEx&)>& readLegacy);
// The path a question file is written to: the legacy form is never written, so a ".viq" path
// becomes ".viqx".
CString QuestionFileWritePath(const CString& path);

} // namespace keel::propdeftab_files
