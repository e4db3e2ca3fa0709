#include "keel/system/pathop.h"

#include "keel/platform/wchar.h"

#include <algorithm>
#include <string>
#include <vector>

namespace keel {

namespace {

constexpr char16_t c_separator = u'/';

bool IsAsciiLetter(char16_t ch) {
    return (ch >= u'a' && ch <= u'z') || (ch >= u'A' && ch <= u'Z');
}

bool Contains(const char16_t* set, char16_t ch) {
    for (; *set; ++set) {
        if (*set == ch)
            return true;
    }
    return false;
}

bool HoldsAnyOf(std::u16string_view text, const char16_t* set) {
    for (const char16_t ch : text) {
        if (Contains(set, ch))
            return true;
    }
    return false;
}

bool IsDotsText(std::u16string_view text) {
    return text == u"." || text == u"..";
}

// A folder or file name: not empty, and none of the separator, the drive colon or the bar.
bool IsSegment(std::u16string_view text) {
    return !text.empty() && !HoldsAnyOf(text, u"/:|");
}

bool EndsWithSeparator(const CString& text) {
    return !text.IsEmpty() && text[text.GetLength() - 1] == c_separator;
}

bool StartsWith(const CString& text, const CString& prefix) {
    return text.View().substr(0, static_cast<std::size_t>(prefix.GetLength())) == prefix.View();
}

// The blanks that the repeated replacement of " /" and " :" would remove: every run of blanks
// just before a "/" or ":", found in one pass from the right.
CString RemoveBlanksBeforeSeparators(const CString& text) {
    std::u16string kept;
    kept.reserve(static_cast<std::size_t>(text.GetLength()));
    bool dropping = false;
    const std::u16string_view units = text.View();
    for (auto it = units.rbegin(); it != units.rend(); ++it) {
        if (*it == u' ' && dropping)
            continue;
        dropping = *it == c_separator || *it == u':';
        kept.push_back(*it);
    }
    return CString(std::u16string(kept.rbegin(), kept.rend()));
}

// Where the parts of a text in normal form begin and end.
struct Layout {
    CString text;
    int driveEnd = 0;
    int uncEnd = 0;
    int rootEnd = 0;
    int folderEnd = 0;
    int dotExtStart = 0;

    int Length() const { return text.GetLength(); }
    std::u16string_view Part(int first, int last) const {
        return text.View().substr(static_cast<std::size_t>(first),
                                  static_cast<std::size_t>(last - first));
    }
    std::u16string_view RootPart() const { return Part(0, rootEnd); }
    std::u16string_view FolderPart() const { return Part(rootEnd, folderEnd); }
    std::u16string_view FileSpecPart() const { return Part(folderEnd, Length()); }
    bool HasSeparatorRoot() const { return rootEnd > 0 && text[rootEnd - 1] == c_separator; }
};

void FindRoot(Layout& layout) {
    const CString& text = layout.text;
    const int length = layout.Length();
    if (length >= 2 && IsAsciiLetter(text[0]) && text[1] == u':') {
        layout.driveEnd = 2;
        layout.rootEnd = length > 2 && text[2] == c_separator ? 3 : 2;
        return;
    }
    if (length >= 2 && text[0] == c_separator && text[1] == c_separator) {
        const int serverEnd = text.Find(c_separator, 2);
        if (serverEnd > 2) {
            int shareEnd = text.Find(c_separator, serverEnd + 1);
            if (shareEnd < 0)
                shareEnd = length;
            if (shareEnd > serverEnd + 1) {
                layout.uncEnd = shareEnd;
                layout.rootEnd = shareEnd < length ? shareEnd + 1 : shareEnd;
                return;
            }
        }
    }
    if (length >= 1 && text[0] == c_separator)
        layout.rootEnd = 1;
}

void FindDotExt(Layout& layout) {
    const std::u16string_view fileSpec = layout.FileSpecPart();
    layout.dotExtStart = layout.Length();
    const std::size_t dot = fileSpec.rfind(u'.');
    if (dot == std::u16string_view::npos || dot + 1 == fileSpec.size())
        return;
    if (fileSpec.substr(0, dot).find_first_not_of(u'.') == std::u16string_view::npos)
        return;
    layout.dotExtStart = layout.folderEnd + static_cast<int>(dot);
}

Layout LayoutOfNormal(const CString& normal) {
    Layout layout;
    layout.text = normal;
    FindRoot(layout);
    layout.folderEnd = std::max(layout.rootEnd, normal.ReverseFind(c_separator) + 1);
    if (IsDotsText(layout.FileSpecPart()))
        layout.folderEnd = layout.Length();
    FindDotExt(layout);
    return layout;
}

Layout LayoutOf(const CString& text) {
    return LayoutOfNormal(QPathOp::NormalForm(text));
}

bool IsRootValid(const Layout& layout) {
    if (layout.uncEnd == 0)
        return true;
    const std::u16string_view unc = layout.Part(2, layout.uncEnd);
    const std::size_t split = unc.find(c_separator);
    return IsSegment(unc.substr(0, split)) && IsSegment(unc.substr(split + 1));
}

// One or more names or dots, each followed by "/".
bool IsFolderGrammar(std::u16string_view folder) {
    if (folder.empty() || folder.back() != c_separator)
        return false;
    std::size_t start = 0;
    while (start < folder.size()) {
        const std::size_t end = folder.find(c_separator, start);
        const std::u16string_view name = folder.substr(start, end - start);
        if (!IsSegment(name) && !IsDotsText(name))
            return false;
        start = end + 1;
    }
    return true;
}

bool IsFileSpecNormal(std::u16string_view text) {
    return IsSegment(text) && !IsDotsText(text);
}

bool IsFolderLayout(const Layout& layout) {
    return EndsWithSeparator(layout.text) && IsRootValid(layout) &&
           (layout.FolderPart().empty() || IsFolderGrammar(layout.FolderPart()));
}

bool IsPathLayout(const Layout& layout) {
    if (layout.Length() == 0 || !IsRootValid(layout))
        return false;
    std::u16string_view folder = layout.FolderPart();
    if (!folder.empty() && folder.back() != c_separator)
        folder = folder.substr(0, folder.rfind(c_separator) + 1);
    if (!folder.empty() && !IsFolderGrammar(folder))
        return false;
    const std::u16string_view fileSpec = layout.FileSpecPart();
    return fileSpec.empty() || IsFileSpecNormal(fileSpec);
}

CString Normalised(const CString& text) {
    CString normal = QPathOp::NormalForm(text);
    // Removing quotes can leave blanks at the ends, which a repaired text must not have.
    normal.Trim();
    return normal;
}

void ReplaceAnyOf(CString& text, const char16_t* set, char16_t with) {
    for (const char16_t* ch = set; *ch; ++ch)
        text.Replace(*ch, with);
}

CString RepairedSegment(std::u16string_view name) {
    CString repaired(name);
    if (!IsDotsText(name))
        ReplaceAnyOf(repaired, u":|", u'_');
    return repaired;
}

CString RepairedRoot(const Layout& layout) {
    if (layout.uncEnd == 0)
        return CString(layout.RootPart());
    const std::u16string_view unc = layout.Part(2, layout.uncEnd);
    const std::size_t split = unc.find(c_separator);
    CString root = u"//" + RepairedSegment(unc.substr(0, split)) + u"/" +
                   RepairedSegment(unc.substr(split + 1));
    if (layout.HasSeparatorRoot())
        root += c_separator;
    return root;
}

// The names of the text between its separators, empty ones left out.
std::vector<CString> SplitNames(std::u16string_view text) {
    std::vector<CString> names;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(c_separator, start);
        if (end == std::u16string_view::npos)
            end = text.size();
        if (end > start)
            names.push_back(RepairedSegment(text.substr(start, end - start)));
        start = end + 1;
    }
    return names;
}

CString JoinNames(const std::vector<CString>& names) {
    CString joined;
    for (std::size_t index = 0; index < names.size(); ++index) {
        if (index > 0)
            joined += c_separator;
        joined += names[index];
    }
    return joined;
}

// Root and names repaired; `asFolder` ends the result with "/".
CString RepairedPath(const CString& text, bool asFolder) {
    const CString normal = Normalised(text);
    if (normal.IsEmpty())
        return normal;
    const Layout layout = LayoutOfNormal(normal);
    const std::vector<CString> names = SplitNames(layout.Part(layout.rootEnd, layout.Length()));
    CString repaired = RepairedRoot(layout) + JoinNames(names);
    if ((asFolder || (EndsWithSeparator(normal) && !names.empty())) && !EndsWithSeparator(repaired))
        repaired += c_separator;
    return repaired;
}

// Puts a "/" between the two unless the first is empty, ends with one, or is a bare drive.
CString JoinAsIs(const CString& first, const CString& second) {
    if (first.IsEmpty())
        return second;
    if (second.IsEmpty() || EndsWithSeparator(first) || QPathOp::IsDrive(first))
        return first + second;
    return first + c_separator + second;
}

CString FolderRepaired(const CString& folder) {
    CString repaired = folder;
    QPathOp::FixExpectedFolder(repaired);
    return repaired;
}

CString DotExtRepaired(const CString& dotExt) {
    CString repaired = dotExt;
    QPathOp::FixExpectedDotExt(repaired);
    return repaired;
}

bool IsExtensionOfLetters(std::u16string_view dotExt) {
    if (dotExt.size() < 2 || !IsAlpha(dotExt[1]))
        return false;
    for (const char16_t ch : dotExt.substr(2)) {
        if (!IsAlpha(ch) && !IsDigit(ch))
            return false;
    }
    return true;
}

} // namespace

CString QPathOp::NormalForm(const CString& text) {
    CString normal = text;
    normal.Trim();
    normal.Replace(u'\\', c_separator);
    normal.Replace(CString(u"<"), CString(u"&lt_"));
    normal.Replace(CString(u">"), CString(u"&gt_"));
    normal.Remove(u'"');
    return RemoveBlanksBeforeSeparators(normal);
}

bool QPathOp::IsName(const CString& text) {
    const CString normal = NormalForm(text);
    return !normal.IsEmpty() && !HoldsAnyOf(normal.View(), u".:/\\;|");
}

bool QPathOp::IsDotExt(const CString& text) {
    const CString normal = NormalForm(text);
    const std::u16string_view extension = normal.View().substr(normal.IsEmpty() ? 0 : 1);
    return !normal.IsEmpty() && normal[0] == u'.' && IsSegment(extension) &&
           extension.find(u'.') == std::u16string_view::npos;
}

bool QPathOp::IsFileSpec(const CString& text) {
    return IsFileSpecNormal(NormalForm(text).View());
}

bool QPathOp::IsDrive(const CString& text) {
    const Layout layout = LayoutOf(text);
    return layout.driveEnd == 2 && layout.Length() == 2;
}

bool QPathOp::IsUNCRoot(const CString& text) {
    const Layout layout = LayoutOf(text);
    return layout.uncEnd > 0 && layout.uncEnd == layout.Length() && IsRootValid(layout);
}

bool QPathOp::IsRoot(const CString& text) {
    const Layout layout = LayoutOf(text);
    return layout.rootEnd > 0 && layout.rootEnd == layout.Length() && IsRootValid(layout);
}

bool QPathOp::IsDots(const CString& text) {
    return IsDotsText(NormalForm(text).View());
}

bool QPathOp::IsFolderRelative(const CString& text) {
    const Layout layout = LayoutOf(text);
    return IsFolderLayout(layout) && !layout.HasSeparatorRoot();
}

bool QPathOp::IsFolderWithoutRoot(const CString& text) {
    const Layout layout = LayoutOf(text);
    return IsFolderLayout(layout) && layout.rootEnd == 0;
}

bool QPathOp::IsFolder(const CString& text) {
    return IsFolderLayout(LayoutOf(text));
}

bool QPathOp::IsPathRelative(const CString& text) {
    const Layout layout = LayoutOf(text);
    return IsPathLayout(layout) && !layout.HasSeparatorRoot();
}

bool QPathOp::IsPathWithoutRoot(const CString& text) {
    const Layout layout = LayoutOf(text);
    return IsPathLayout(layout) && layout.rootEnd == 0;
}

bool QPathOp::IsPath(const CString& text) {
    return IsPathLayout(LayoutOf(text));
}

bool QPathOp::HasDotExt(const CString& text) {
    return !DotExt(text).IsEmpty();
}
bool QPathOp::HasFileSpec(const CString& text) {
    return !FileSpec(text).IsEmpty();
}
bool QPathOp::HasDrive(const CString& text) {
    return !Drive(text).IsEmpty();
}
bool QPathOp::HasUNCRoot(const CString& text) {
    return !UNCRoot(text).IsEmpty();
}
bool QPathOp::HasRoot(const CString& text) {
    return !Root(text).IsEmpty();
}
bool QPathOp::HasFolder(const CString& text) {
    return !Folder(text).IsEmpty();
}

CString QPathOp::Drive(const CString& path) {
    const Layout layout = LayoutOf(path);
    return CString(layout.Part(0, layout.driveEnd));
}

CString QPathOp::UNCRoot(const CString& path) {
    const Layout layout = LayoutOf(path);
    return CString(layout.Part(0, layout.uncEnd));
}

CString QPathOp::Root(const CString& path) {
    return CString(LayoutOf(path).RootPart());
}

CString QPathOp::Folder(const CString& path) {
    return CString(LayoutOf(path).FolderPart());
}

CString QPathOp::FileSpec(const CString& path) {
    return CString(LayoutOf(path).FileSpecPart());
}

CString QPathOp::DotExt(const CString& path) {
    const Layout layout = LayoutOf(path);
    return CString(layout.Part(layout.dotExtStart, layout.Length()));
}

CString QPathOp::PathWithoutRoot(const CString& path) {
    const Layout layout = LayoutOf(path);
    return CString(layout.Part(layout.rootEnd, layout.Length()));
}

CString QPathOp::PathWithoutFileSpec(const CString& path) {
    const Layout layout = LayoutOf(path);
    return CString(layout.Part(0, layout.folderEnd));
}

CString QPathOp::PathWithoutFolder(const CString& path) {
    return FileSpec(path);
}

CString QPathOp::FileSpecWithoutDotExt(const CString& path) {
    const Layout layout = LayoutOf(path);
    return CString(layout.Part(layout.folderEnd, layout.dotExtStart));
}

CString QPathOp::ParentFolder(const CString& path) {
    const Layout layout = LayoutOf(path);
    if (!layout.FileSpecPart().empty())
        return CString(layout.Part(0, layout.folderEnd));
    std::u16string_view folder = layout.FolderPart();
    if (folder.empty())
        return CString();
    if (folder.back() == c_separator)
        folder.remove_suffix(1);
    const std::size_t lastSeparator = folder.rfind(c_separator);
    const std::u16string_view above = lastSeparator == std::u16string_view::npos
                                          ? std::u16string_view()
                                          : folder.substr(0, lastSeparator + 1);
    if (above.empty() && !layout.HasSeparatorRoot())
        return CString();
    return CString(layout.RootPart()) + CString(above);
}

CString QPathOp::FolderAsFilePath(const CString& folder) {
    const CString normal = NormalForm(folder);
    if (!EndsWithSeparator(normal) || IsRoot(normal))
        return normal;
    return normal.Left(normal.GetLength() - 1);
}

CString QPathOp::FolderPlusFolder(const CString& folder, const CString& subFolder) {
    const CString sub = NormalForm(subFolder);
    if (HasRoot(sub))
        return FolderRepaired(sub);
    return FolderRepaired(FolderRepaired(folder) + sub);
}

CString QPathOp::FolderPlusFileSpec(const CString& folder, const CString& fileSpec) {
    return FolderPlusPath(folder, fileSpec);
}

CString QPathOp::FolderPlusPath(const CString& folder, const CString& path) {
    const CString second = NormalForm(path);
    if (HasRoot(second))
        return second;
    return FolderRepaired(folder) + second;
}

CString QPathOp::PathPlusFileSpec(const CString& path, const CString& fileSpec) {
    const CString second = NormalForm(fileSpec);
    if (HasRoot(second))
        return second;
    return JoinAsIs(NormalForm(path), second);
}

CString QPathOp::PathPlusDotExt(const CString& path, const CString& dotExt) {
    const CString normal = NormalForm(path);
    if (!HasFileSpec(normal))
        return normal;
    return normal + DotExtRepaired(dotExt);
}

CString QPathOp::RemoveLeadingFolderFromFolder(const CString& folder,
                                               const CString& leadingFolder) {
    const CString repaired = FolderRepaired(folder);
    const CString leading = FolderRepaired(leadingFolder);
    if (leading.IsEmpty() || !StartsWith(repaired, leading))
        return repaired;
    return repaired.Mid(leading.GetLength());
}

CString QPathOp::RemoveLeadingFolderFromPath(const CString& path, const CString& leadingFolder) {
    const CString normal = NormalForm(path);
    if (!MatchLeadingFolderFromPath(normal, leadingFolder))
        return normal;
    return normal.Mid(FolderRepaired(leadingFolder).GetLength());
}

bool QPathOp::MatchLeadingFolderFromPath(const CString& path, const CString& leadingFolder) {
    const CString leading = FolderRepaired(leadingFolder);
    return !leading.IsEmpty() && StartsWith(NormalForm(path), leading);
}

CString QPathOp::ChangeFileSpec(const CString& path, const CString& fileSpec) {
    return PathPlusFileSpec(PathWithoutFileSpec(path), fileSpec);
}

CString QPathOp::ChangeDotExt(const CString& path, const CString& dotExt) {
    const Layout layout = LayoutOf(path);
    if (layout.FileSpecPart().empty())
        return layout.text;
    return CString(layout.Part(0, layout.dotExtStart)) + DotExtRepaired(dotExt);
}

CString QPathOp::ChangeFolder(const CString& path, const CString& folder) {
    return FolderPlusFileSpec(folder, FileSpec(path));
}

void QPathOp::FixExpectedName(CString& text) {
    text = NormalForm(text);
    ReplaceAnyOf(text, u".\\/:", u'_');
    text.Trim();
    text.Trim(u". ");
    if (HoldsAnyOf(text.View(), u";|"))
        text.Empty();
}

void QPathOp::FixExpectedFileSpec(CString& text) {
    text = Normalised(text);
    ReplaceAnyOf(text, u"/:|", u'_');
    if (IsDotsText(text.View()))
        text.Empty();
}

void QPathOp::FixExpectedDotExt(CString& text) {
    const CString normal = Normalised(text);
    CString extension = normal.Mid(normal.ReverseFind(u'.') + 1);
    ReplaceAnyOf(extension, u"/:|", u'_');
    extension.Trim();
    text = extension.IsEmpty() ? CString() : u"." + extension;
}

void QPathOp::FixExpectedDrive(CString& text) {
    const CString normal = Normalised(text);
    const bool looksLikeDrive = !normal.IsEmpty() && IsAsciiLetter(normal[0]) &&
                                (normal.GetLength() == 1 || normal[1] == u':');
    text = looksLikeDrive ? normal.Left(1) + u":" : CString();
}

void QPathOp::FixExpectedUNCRoot(CString& text) {
    const std::vector<CString> names = SplitNames(Normalised(text).View());
    CString share = names.size() < 2 ? CString() : names[1];
    // The share ends the root, where blanks would be trimmed away by the next normal form.
    share.TrimRight();
    text = share.IsEmpty() ? CString() : u"//" + names[0] + u"/" + share;
}

void QPathOp::FixExpectedRoot(CString& text) {
    const CString normal = Normalised(text);
    const Layout layout = LayoutOfNormal(normal);
    if (layout.rootEnd > 0)
        text = RepairedRoot(layout);
    else if (normal.GetLength() == 1 && IsAsciiLetter(normal[0]))
        text = normal + u":";
    else
        text.Empty();
}

void QPathOp::FixExpectedDots(CString& text) {
    CString normal = Normalised(text);
    normal.TrimRight(c_separator);
    const bool onlyDots = !normal.IsEmpty() && normal.SpanIncluding(u".") == normal;
    text = !onlyDots ? CString() : normal.GetLength() == 1 ? CString(u".") : CString(u"..");
}

void QPathOp::FixExpectedFolder(CString& text) {
    text = RepairedPath(text, true);
}

void QPathOp::FixExpectedPath(CString& text) {
    text = RepairedPath(text, false);
}

bool QPathOp::MatchDotExt(const CString& path, const CString& dotExt) {
    const CString extension = DotExt(path);
    return !extension.IsEmpty() && extension.CompareNoCase(DotExtRepaired(dotExt)) == 0;
}

void QPathOp::FixupDotExt(CString& path, const CString& dotExt) {
    path = MatchDotExt(path, dotExt) ? NormalForm(path) : PathPlusDotExt(path, dotExt);
}

void QPathOp::FixupDotExtIfNoDotABC(CString& path, const CString& dotExt) {
    path =
        IsExtensionOfLetters(DotExt(path).View()) ? NormalForm(path) : PathPlusDotExt(path, dotExt);
}

bool QPathOp::Match(const CString& text, const CString& pattern) {
    const CString normal = NormalForm(text);
    if (normal.IsEmpty() || !IsPath(normal))
        return false;
    int start = 0;
    const std::u16string_view units = pattern.View();
    while (start <= pattern.GetLength()) {
        std::size_t end = units.find_first_of(u";|", static_cast<std::size_t>(start));
        if (end == std::u16string_view::npos)
            end = units.size();
        const CString alternative(units.substr(static_cast<std::size_t>(start), end - start));
        if (MatchWildcardExpression(normal, NormalForm(alternative)))
            return true;
        start = static_cast<int>(end) + 1;
    }
    return false;
}

bool MatchWildcardExpression(const CString& text, const CString& pattern) {
    // Greedy matching that goes back only to the last "*": at most length(text) restarts, each
    // of at most length(pattern) steps.
    const std::u16string_view subject = text.View();
    const std::u16string_view wildcards = pattern.View();
    constexpr std::size_t none = std::u16string_view::npos;
    std::size_t at = 0;
    std::size_t patternAt = 0;
    std::size_t lastStar = none;
    std::size_t resumeAt = 0;
    while (at < subject.size()) {
        if (patternAt < wildcards.size() && wildcards[patternAt] == u'*') {
            lastStar = patternAt++;
            resumeAt = at;
        } else if (patternAt < wildcards.size() &&
                   (wildcards[patternAt] == u'?' ||
                    ToLower(wildcards[patternAt]) == ToLower(subject[at]))) {
            ++at;
            ++patternAt;
        } else if (lastStar != none) {
            patternAt = lastStar + 1;
            at = ++resumeAt;
        } else {
            return false;
        }
    }
    while (patternAt < wildcards.size() && wildcards[patternAt] == u'*')
        ++patternAt;
    return patternAt == wildcards.size();
}

} // namespace keel
