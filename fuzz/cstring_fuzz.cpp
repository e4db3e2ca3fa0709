// Text from outside: UTF-8 decoding and encoding, printf-style formats (translation files hold
// them), and the canonical forms of names.
#include "keel/platform/cstring.h"
#include "keel/values/stringunique.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace keel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const CString text = CString::FromUtf8(bytes);

    // Decoding is lossy only once: what comes out re-encodes to itself.
    const std::string utf8 = text.ToUtf8();
    if (CString::FromUtf8(utf8).ToUtf8() != utf8)
        std::abort();

    CString formatted;
    formatted.Format(text, 42, -7.5, u"wide", "narrow", text, 'x', static_cast<const void*>(data));

    const CString identifier = IdentifierCanonicalForm(text, true, true);
    if (IdentifierCanonicalForm(identifier, true, true) != identifier)
        std::abort();
    const CString formula = FormulaCanonicalForm(text);
    if (FormulaCanonicalForm(formula) != formula)
        std::abort();
    return 0;
}
