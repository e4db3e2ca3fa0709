#include "keel/platform/fpstatus.h"

#include <cfenv>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace keel {

namespace {

struct FlagMapping {
    int environment;
    unsigned status;
};

constexpr FlagMapping kFlagMappings[] = {
    {FE_INEXACT, SW_INEXACT},      {FE_UNDERFLOW, SW_UNDERFLOW}, {FE_OVERFLOW, SW_OVERFLOW},
    {FE_DIVBYZERO, SW_ZERODIVIDE}, {FE_INVALID, SW_INVALID},
};

#if defined(__x86_64__)
// The library's functions spend much of a division clearing and reading the flags, and the
// standard calls save and reload the whole x87 environment to do it. Both units keep the flags
// in the same low bits as <cfenv> numbers them, so reading the two status words and clearing
// them directly gives the same answers far more cheaply.
int RaisedExceptions() {
    unsigned short x87Status = 0;
    asm volatile("fnstsw %0" : "=am"(x87Status));
    return static_cast<int>((x87Status | _mm_getcsr()) & FE_ALL_EXCEPT);
}

// Writing a status word costs far more than reading it, so only a word with flags is written.
void ClearRaisedExceptions() {
    unsigned short x87Status = 0;
    asm volatile("fnstsw %0" : "=am"(x87Status));
    if (x87Status & FE_ALL_EXCEPT)
        asm volatile("fnclex");
    const unsigned sseStatus = _mm_getcsr();
    if (sseStatus & FE_ALL_EXCEPT)
        _mm_setcsr(sseStatus & ~static_cast<unsigned>(FE_ALL_EXCEPT));
}
#else
int RaisedExceptions() {
    return std::fetestexcept(FE_ALL_EXCEPT);
}

void ClearRaisedExceptions() {
    std::feclearexcept(FE_ALL_EXCEPT);
}
#endif

} // namespace

unsigned ReadFPStatus() {
    const int raised = RaisedExceptions();
    unsigned status = 0;
    for (const FlagMapping& mapping : kFlagMappings) {
        if (raised & mapping.environment)
            status |= mapping.status;
    }
    return status;
}

unsigned ClearFPStatus() {
    const unsigned status = ReadFPStatus();
    ClearRaisedExceptions();
    return status;
}

} // namespace keel
