#pragma once

#include "keel/platform/cstring.h"

namespace keel {

/*
Paths on this system
--------------------
Paths on disk use "/". Every operation first brings its text to the normal form: white space
trimmed from both ends; "\" turned into "/", so that paths written by programs of the other
platform still work; "<" into "&lt_" and ">" into "&gt_"; double quotes removed; then " /" into
"/" and " :" into ":", repeatedly.

A path is   Root? Folder? (FileSpec | Dots)?   read from the left:
  Root      "/" for an absolute path; a UNC root "//server/share" or a drive "C:" (kept so that
            paths from the other platform can be repaired and reported), each followed by its
            "/" when the path goes on from there: "C:/", "//server/share/". A drive without
            "/" ("C:a/b") is drive-relative.
  Folder    the folders after the root, each ending with "/": "a/b/". Never starts with "/".
  FileSpec  what follows the last "/": Name and DotExt. A path ending in "/" has none.
  DotExt    the last "." of the FileSpec and what follows, when a character other than "."
            comes before it and one comes after it: ".txt" of "a.b.txt"; ".bashrc" and "a."
            have none.
  Dots      "." or ".."; at the end of a path they name a folder and count as part of the
            Folder, so "a/.." has no FileSpec.
The parts join back: Root + Folder + FileSpecWithoutDotExt + DotExt is the normal form. A part
is cut from the normal form as it stands, so the name " b" of "a/ b" keeps its blank; handed to
another operation it is trimmed like any text.

A folder or file name is not empty and holds none of "/", ":" (drives only) and "|" (never legal
in a file name there, and a separator of alternatives in patterns). IsName is stricter: no ".",
":", "/", ";" or "|". "Relative" means not anchored at a "/": no root, or a bare drive. Nothing
resolves Dots or looks at the disk; names compare exactly, as the disk does, except in Match.
*/

// The vocabulary of paths: tests of what a text is, its parts, joins and repairs. All static.
class QPathOp {
public:
    QPathOp() = delete;

    static CString NormalForm(const CString& text);

    // Tests: whether the whole text (in normal form) has that form.
    static bool IsName(const CString& text);
    static bool IsDotExt(const CString& text);
    static bool IsFileSpec(const CString& text);
    static bool IsDrive(const CString& text);
    static bool IsUNCRoot(const CString& text);
    static bool IsRoot(const CString& text);
    static bool IsDots(const CString& text);
    static bool IsFolderRelative(const CString& text);
    static bool IsFolderWithoutRoot(const CString& text);
    static bool IsFolder(const CString& text);
    static bool IsPathRelative(const CString& text);
    static bool IsPathWithoutRoot(const CString& text);
    static bool IsPath(const CString& text);

    // Whether the text contains that part.
    static bool HasDotExt(const CString& text);
    static bool HasFileSpec(const CString& text);
    static bool HasDrive(const CString& text);
    static bool HasUNCRoot(const CString& text);
    static bool HasRoot(const CString& text);
    static bool HasFolder(const CString& text);

    // Parts; empty when the text has none.
    static CString Drive(const CString& path);
    static CString UNCRoot(const CString& path);
    static CString Root(const CString& path);
    static CString Folder(const CString& path);
    static CString FileSpec(const CString& path);
    static CString DotExt(const CString& path);
    static CString PathWithoutRoot(const CString& path);
    static CString PathWithoutFileSpec(const CString& path);
    // What is left when the root and the folders are taken away: the FileSpec.
    static CString PathWithoutFolder(const CString& path);
    static CString FileSpecWithoutDotExt(const CString& path);
    // The folder that holds what the path names: for a file its folder, for a folder the one
    // above it. Empty for a root, or a relative folder of one level.
    static CString ParentFolder(const CString& path);
    // The folder without its trailing "/", as a path to the folder itself; a root stays as it is.
    static CString FolderAsFilePath(const CString& folder);

    // Joins. A second part with a root stands on its own and is the result.
    static CString FolderPlusFolder(const CString& folder, const CString& subFolder);
    // The folder is repaired as one first, so "C:" becomes "C:/".
    static CString FolderPlusFileSpec(const CString& folder, const CString& fileSpec);
    static CString FolderPlusPath(const CString& folder, const CString& path);
    // The path is taken as it stands, with a "/" put between when needed; after a bare drive
    // none is, so "C:" and "a" give "C:a".
    static CString PathPlusFileSpec(const CString& path, const CString& fileSpec);
    // Adds the extension (repaired, "txt" becomes ".txt") to a path with a FileSpec; a path
    // without one comes back unchanged.
    static CString PathPlusDotExt(const CString& path, const CString& dotExt);
    // The folder relative to `leadingFolder` when it lies inside it ("" when they are the same),
    // else the folder itself.
    static CString RemoveLeadingFolderFromFolder(const CString& folder,
                                                 const CString& leadingFolder);
    static CString RemoveLeadingFolderFromPath(const CString& path, const CString& leadingFolder);
    static bool MatchLeadingFolderFromPath(const CString& path, const CString& leadingFolder);
    static CString ChangeFileSpec(const CString& path, const CString& fileSpec);
    // An empty extension removes the one there is.
    static CString ChangeDotExt(const CString& path, const CString& dotExt);
    static CString ChangeFolder(const CString& path, const CString& folder);

    // Repairs: each makes the text conform in place, or empties it when it cannot. A repaired
    // text is empty or passes the test of the same word.
    static void FixExpectedName(CString& text);
    static void FixExpectedFileSpec(CString& text);
    static void FixExpectedDotExt(CString& text);
    static void FixExpectedDrive(CString& text);
    static void FixExpectedUNCRoot(CString& text);
    static void FixExpectedRoot(CString& text);
    static void FixExpectedDots(CString& text);
    static void FixExpectedFolder(CString& text);
    static void FixExpectedPath(CString& text);

    // Whether the path's extension is `dotExt` (with or without its "."), in any case.
    static bool MatchDotExt(const CString& path, const CString& dotExt);
    // Adds `dotExt` unless the path ends with it already: "prices" and "prices.2019" get ".vlt".
    static void FixupDotExt(CString& path, const CString& dotExt);
    // Adds `dotExt` when the path has no extension of letters: an extension is a "." and a
    // letter, then letters or digits (".txt", ".mp3"); "v1.2" has none and gets one.
    static void FixupDotExtIfNoDotABC(CString& path, const CString& dotExt);

    // Whether the path (in normal form, not empty and a path) matches one of the alternatives
    // of `pattern`, which are separated by ";" or "|".
    static bool Match(const CString& text, const CString& pattern);
};

// Whether the whole text matches the pattern, where "*" stands for any run of characters and
// "?" for one. Letters match in either case, as file names did on the platform these paths come
// from.
bool MatchWildcardExpression(const CString& text, const CString& pattern);

} // namespace keel
