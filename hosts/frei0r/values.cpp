#include "hosts/frei0r/records.h"

#include <algorithm>
#include <cmath>

namespace frei0r {

double host_value(const Param& param, float value) {
    if (param.kind != Kind::number) return value;
    return (static_cast<double>(value) - param.low) / (static_cast<double>(param.high) - param.low);
}

float effect_value(const Param& param, double value) {
    // Hosts write what they keep as texts, with fewer digits than they were given: a default comes back as itself.
    constexpr double near = 5e-7;
    if (std::isnan(value) || std::fabs(value - host_value(param, param.defaults[0])) < near) return param.defaults[0];
    value = std::clamp(value, 0.0, 1.0);
    if (param.kind == Kind::boolean) return value >= 0.5 ? 1 : 0;
    if (param.kind != Kind::number) return static_cast<float>(value);
    const double in_effect = param.low + value * (static_cast<double>(param.high) - param.low);
    return static_cast<float>(param.scale == Scale::even ? in_effect : std::round(in_effect));
}

}  // namespace frei0r
