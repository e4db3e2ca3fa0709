#pragma once

namespace keel {

// Floating-point faults are never trapped on this platform. Code that must notice them clears
// the status flags, computes, and tests the flags afterwards. The bits are the desktop status
// word's.
inline constexpr unsigned SW_INEXACT = 0x00001;
inline constexpr unsigned SW_UNDERFLOW = 0x00002;
inline constexpr unsigned SW_OVERFLOW = 0x00004;
inline constexpr unsigned SW_ZERODIVIDE = 0x00008;
inline constexpr unsigned SW_INVALID = 0x00010;
// The processor does not report denormal operands through <cfenv>; this bit is never set.
inline constexpr unsigned SW_DENORMAL = 0x80000;

// The words for each flag, in the order in which a message lists them.
struct FPStatusText {
    unsigned bit;
    const char16_t* text;
};
inline constexpr FPStatusText c_fpStatusTexts[] = {
    {SW_INEXACT, u"result was not exact"},    {SW_UNDERFLOW, u"result was too small"},
    {SW_OVERFLOW, u"result was too big"},     {SW_ZERODIVIDE, u"division by zero"},
    {SW_INVALID, u"result was not a number"}, {SW_DENORMAL, u"tried to use a bad number"},
};

// The flags raised since they were last cleared.
unsigned ReadFPStatus();
// Returns the flags raised so far and clears them.
unsigned ClearFPStatus();

// Clears the status flags when it starts and when it ends, so faults inside the scope are seen
// by it alone and none leak out of it.
class CFPStatusScope {
public:
    CFPStatusScope() { ClearFPStatus(); }
    ~CFPStatusScope() { ClearFPStatus(); }
    CFPStatusScope(const CFPStatusScope&) = delete;
    CFPStatusScope& operator=(const CFPStatusScope&) = delete;

    // The flags raised since the scope started.
    unsigned GetStatus() const { return ReadFPStatus(); }
};

} // namespace keel
