// Formula texts from anywhere, each evaluated twice in the same surroundings: by walking its
// tokens, and by its compiled form when it has one. Both must give the same: success or the same
// message, the same value to the byte, the same log, the same names asked of the context in the
// same order, the same cache state and floating-point flags. A difference aborts.
#include "fuzz/formulaguard.h"
#include "tests/support/formularuns.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace keel;

constexpr std::size_t c_maxInputBytes = 4096;
constexpr int c_maxEvaluationsPerInput = 1000;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    keel::fuzz::InstallGuard();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CString text;
    if (!keel::fuzz::ReadBoundedFormula(data, size, c_maxInputBytes, text))
        return 0;
    const std::string bytes = text.ToUtf8();

    // Each run makes the tokens anew, as reading a literal may raise floating-point flags.
    const FormulaText formula(text);
    const auto retokenise = [&] {
        if (!formula.IsEmpty())
            QTokeniser::ForceRetokenise(formula.UniqueId());
    };
    test::FormulaRunner runner;
    keel::fuzz::Guard().StartInput(c_maxEvaluationsPerInput);
    const test::FormulaRun walked = runner.Run(bytes, QFormulaCompilation::Off);
    retokenise();
    keel::fuzz::Guard().StartInput(c_maxEvaluationsPerInput);
    const test::FormulaRun compiled = runner.Run(bytes, QFormulaCompilation::Always);
    if (!(walked == compiled)) {
        std::fprintf(stderr, "%s\nwalked:   %s\ncompiled: %s\n", bytes.c_str(),
                     test::Describe(walked).c_str(), test::Describe(compiled).c_str());
        std::abort();
    }
    retokenise();
    return 0;
}
