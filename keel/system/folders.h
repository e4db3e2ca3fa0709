#pragma once

#include "keel/platform/cstring.h"

namespace keel {

// The folders of the desktop that SpecialFolderLocation knows.
enum class QSpecialFolder {
    Home,      // $HOME
    Documents, // the desktop's documents folder, or ~/Documents
    Desktop,   // the desktop's desktop folder, or ~/Desktop
    Config,    // $XDG_CONFIG_HOME, or ~/.config
    Data,      // $XDG_DATA_HOME, or ~/.local/share
    Temp,      // $TMPDIR, or /tmp
};

// The folders of the desktop and of the running program. They do not depend on which
// application runs, so the services below the application reach them here. Each folder ends
// in "/".
struct QFolders {
    static CString SpecialFolderLocation(QSpecialFolder folder);
    // The running program's full path, and its folder.
    static CString ProgramPathAndName();
    static CString ProgramDir();
    // The user's data folder for Keel programs: logs and trace files go here.
    static CString DataDir();
    static CString MyDocumentsDir();
};

} // namespace keel
