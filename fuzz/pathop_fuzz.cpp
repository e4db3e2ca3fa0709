// Runs the whole path vocabulary on fuzzed text and checks the rules that hold for any text: the
// parts join back to the normal form, and a repaired text is empty or passes its test.
//
// Input: a first byte that chooses the encoding of the rest (even: UTF-8, odd: UTF-16
// little-endian, so that lone surrogates come in too), then a text and a pattern separated by the
// first line feed.

#include "keel/system/pathop.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

using keel::CString;
using keel::QPathOp;

constexpr std::size_t c_maxInput = 4096;

CString Decode(const std::uint8_t* data, std::size_t size, bool utf16) {
    if (!utf16)
        return CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
    std::u16string units;
    for (std::size_t index = 0; index + 1 < size; index += 2)
        units.push_back(static_cast<char16_t>(data[index] | data[index + 1] << 8));
    return CString(units);
}

void Require(bool condition) {
    if (!condition)
        __builtin_trap();
}

void CheckPartsJoinBack(const CString& text) {
    const CString normal = QPathOp::NormalForm(text);
    Require(QPathOp::Root(text) + QPathOp::Folder(text) + QPathOp::FileSpecWithoutDotExt(text) +
                QPathOp::DotExt(text) ==
            normal);
    Require(QPathOp::PathWithoutFileSpec(text) + QPathOp::FileSpec(text) == normal);
    Require(QPathOp::Root(text) + QPathOp::PathWithoutRoot(text) == normal);
    // Parts handed to another operation are trimmed again (quotes removed from the ends can
    // leave blanks there), and a text such as "a:b" that is no FileSpec reads as a drive there,
    // so only a proper FileSpec of a text whose normal form is stable comes back whole.
    const CString fileSpec = QPathOp::FileSpec(text);
    if (QPathOp::NormalForm(normal) == normal && QPathOp::IsFileSpec(fileSpec) &&
        QPathOp::NormalForm(fileSpec) == fileSpec)
        Require(QPathOp::ChangeFileSpec(text, fileSpec) == normal);
    Require(!QPathOp::IsPath(text) || !normal.IsEmpty());
    Require(!QPathOp::IsFolder(text) || QPathOp::IsPath(text));
}

void CheckRepair(void (*repair)(CString&), bool (*test)(const CString&), const CString& text) {
    CString repaired = text;
    repair(repaired);
    Require(repaired.IsEmpty() || test(repaired));
    CString again = repaired;
    repair(again);
    Require(again == repaired);
}

void RunTestsAndParts(const CString& text) {
    bool (*const tests[])(const CString&) = {
        QPathOp::IsName,    QPathOp::IsDotExt,         QPathOp::IsFileSpec,
        QPathOp::IsDrive,   QPathOp::IsUNCRoot,        QPathOp::IsRoot,
        QPathOp::IsDots,    QPathOp::IsFolderRelative, QPathOp::IsFolderWithoutRoot,
        QPathOp::IsFolder,  QPathOp::IsPathRelative,   QPathOp::IsPathWithoutRoot,
        QPathOp::IsPath,    QPathOp::HasDotExt,        QPathOp::HasFileSpec,
        QPathOp::HasDrive,  QPathOp::HasUNCRoot,       QPathOp::HasRoot,
        QPathOp::HasFolder,
    };
    for (const auto test : tests)
        test(text);
    CString (*const parts[])(const CString&) = {
        QPathOp::Drive,
        QPathOp::UNCRoot,
        QPathOp::Root,
        QPathOp::Folder,
        QPathOp::FileSpec,
        QPathOp::DotExt,
        QPathOp::PathWithoutRoot,
        QPathOp::PathWithoutFileSpec,
        QPathOp::PathWithoutFolder,
        QPathOp::FileSpecWithoutDotExt,
        QPathOp::ParentFolder,
        QPathOp::FolderAsFilePath,
    };
    for (const auto part : parts)
        part(text);
}

void RunJoins(const CString& first, const CString& second) {
    CString (*const joins[])(const CString&, const CString&) = {
        QPathOp::FolderPlusFolder,
        QPathOp::FolderPlusFileSpec,
        QPathOp::FolderPlusPath,
        QPathOp::PathPlusFileSpec,
        QPathOp::PathPlusDotExt,
        QPathOp::RemoveLeadingFolderFromFolder,
        QPathOp::RemoveLeadingFolderFromPath,
        QPathOp::ChangeFileSpec,
        QPathOp::ChangeDotExt,
        QPathOp::ChangeFolder,
    };
    for (const auto join : joins)
        join(first, second);
    QPathOp::MatchLeadingFolderFromPath(first, second);
    QPathOp::MatchDotExt(first, second);
    CString path = first;
    QPathOp::FixupDotExt(path, second);
    path = first;
    QPathOp::FixupDotExtIfNoDotABC(path, second);
}

void RunRepairs(const CString& text) {
    CheckRepair(QPathOp::FixExpectedName, QPathOp::IsName, text);
    CheckRepair(QPathOp::FixExpectedFileSpec, QPathOp::IsFileSpec, text);
    CheckRepair(QPathOp::FixExpectedDotExt, QPathOp::IsDotExt, text);
    CheckRepair(QPathOp::FixExpectedDrive, QPathOp::IsDrive, text);
    CheckRepair(QPathOp::FixExpectedUNCRoot, QPathOp::IsUNCRoot, text);
    CheckRepair(QPathOp::FixExpectedRoot, QPathOp::IsRoot, text);
    CheckRepair(QPathOp::FixExpectedDots, QPathOp::IsDots, text);
    CheckRepair(QPathOp::FixExpectedFolder, QPathOp::IsFolder, text);
    CheckRepair(QPathOp::FixExpectedPath, QPathOp::IsPath, text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > c_maxInput)
        return 0;
    const CString input = Decode(data + 1, size - 1, (data[0] & 1) != 0);
    const int split = input.Find(u'\n');
    const CString text = split < 0 ? input : input.Left(split);
    const CString pattern = split < 0 ? CString() : input.Mid(split + 1);

    for (const CString& subject : {text, pattern}) {
        CheckPartsJoinBack(subject);
        RunTestsAndParts(subject);
        RunRepairs(subject);
    }
    RunJoins(text, pattern);
    RunJoins(pattern, text);
    QPathOp::Match(text, pattern);
    keel::MatchWildcardExpression(text, pattern);
    return 0;
}
