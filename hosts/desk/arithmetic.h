// Sums that are typed into a field.
#pragma once

#include <QString>

#include <optional>

namespace desk {

// "1.5", "2*3+1", "(4-1)/2"; one that begins with "*", "/" or "+=", "-=" goes on from the value that stands there.
// Nothing if it is none, or no finite number. A comma is taken for a point.
std::optional<double> typed_value(const QString& text, double present);

}  // namespace desk
