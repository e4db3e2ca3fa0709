#include "keel/platform/fpstatus.h"

#include <cfenv>

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

} // namespace

unsigned ReadFPStatus() {
    const int raised = std::fetestexcept(FE_ALL_EXCEPT);
    unsigned status = 0;
    for (const FlagMapping& mapping : kFlagMappings) {
        if (raised & mapping.environment)
            status |= mapping.status;
    }
    return status;
}

unsigned ClearFPStatus() {
    const unsigned status = ReadFPStatus();
    std::feclearexcept(FE_ALL_EXCEPT);
    return status;
}

} // namespace keel
