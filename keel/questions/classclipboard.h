#pragma once

namespace keel {

// The clipboard that a class of question definitions keeps for itself: one object of the class,
// shared by the whole program, that copy and paste assign to and from by value. Nothing goes to
// the system clipboard. `T` derives from QClassClipboard<T>.
template <class T>
class QClassClipboard {
public:
    static T& Clipboard() {
        static T clipboard;
        return clipboard;
    }
    void CopyToClipboard() const { Clipboard() = static_cast<const T&>(*this); }
    void PasteFromClipboard() { static_cast<T&>(*this) = Clipboard(); }
};

} // namespace keel
