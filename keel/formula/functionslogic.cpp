#include "keel/formula/builtins.h"
#include "keel/platform/random.h"

namespace keel {

namespace {

// The generator gives 0 to 32767: rand() reaches up to, not including, 1 and random() up to 1.
bool Rand(QBuiltinCall& call) {
    call.result = keel::rand() * (1.0 / (RAND_MAX_VALUE + 1));
    return true;
}

bool Random(QBuiltinCall& call) {
    call.result = keel::rand() / static_cast<double>(RAND_MAX_VALUE);
    return true;
}

constexpr QBuiltinFunction c_functions[] = {
    {u"rand", 0, 0, u"", false, ServeAlways<Rand>},
    {u"random", 0, 0, u"", false, ServeAlways<Random>},
};

} // namespace

const QBuiltinGroup& LogicFunctions() {
    static const QBuiltinGroup group{u"No arguments", c_functions};
    return group;
}

} // namespace keel
