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
// them directly gives the same answers far more cheaply. Even a read of either word is slow, so
// each is read once.
struct StatusWords {
    unsigned x87;
    unsigned sse;
};

StatusWords ReadStatusWords() {
    unsigned short x87Status = 0;
    asm volatile("fnstsw %0" : "=am"(x87Status));
    return {x87Status, _mm_getcsr()};
}

int RaisedExceptions(const StatusWords& words) {
    return static_cast<int>((words.x87 | words.sse) & FE_ALL_EXCEPT);
}

// Writing a status word costs far more than reading it, so only a word with flags is written.
void ClearRaisedExceptions(const StatusWords& words) {
    if (words.x87 & FE_ALL_EXCEPT)
        asm volatile("fnclex");
    if (words.sse & FE_ALL_EXCEPT)
        _mm_setcsr(words.sse & ~static_cast<unsigned>(FE_ALL_EXCEPT));
}
#else
struct StatusWords {};

StatusWords ReadStatusWords() {
    return {};
}

int RaisedExceptions(const StatusWords&) {
    return std::fetestexcept(FE_ALL_EXCEPT);
}

void ClearRaisedExceptions(const StatusWords&) {
    std::feclearexcept(FE_ALL_EXCEPT);
}
#endif

unsigned StatusOf(int raised) {
    unsigned status = 0;
    for (const FlagMapping& mapping : kFlagMappings) {
        if (raised & mapping.environment)
            status |= mapping.status;
    }
    return status;
}

} // namespace

unsigned ReadFPStatus() {
    return StatusOf(RaisedExceptions(ReadStatusWords()));
}

unsigned ClearFPStatus() {
    const StatusWords words = ReadStatusWords();
    const unsigned status = StatusOf(RaisedExceptions(words));
    ClearRaisedExceptions(words);
    return status;
}

} // namespace keel
