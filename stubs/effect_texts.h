// The effect texts of a module, compiled in by the build.
#pragma once

struct StubEffectText {
    const char* name;
    const char* text;
};

extern const StubEffectText stub_effect_texts[];  // ends with a null text
