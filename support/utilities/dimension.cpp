// dimension.cpp: unit conversion through micrometres. Each unit is an exact fraction of
// micrometres, and a conversion multiplies before it divides, so that conversions between
// units of whole ratios (612 points = 215,900 um = 8.5 inches) come out exact.
#include "support/utilities/dimension.h"

namespace {

struct Ratio {
    double microns;  // this many micrometres ...
    double per;      // ... make this many units
};

Ratio RatioOf(Dimension::UnitsEnum unit) {
    switch (unit) {
        case Dimension::Inches:
            return {25400.0, 1.0};
        case Dimension::Points:
            return {25400.0, 72.0};
        case Dimension::Millimeters:
            return {1000.0, 1.0};
        case Dimension::Centimeters:
            return {10000.0, 1.0};
        case Dimension::Pixels96:
            return {25400.0, 96.0};
        case Dimension::Twips:
            return {25400.0, 1440.0};
        case Dimension::TenthsOfMillimeter:
            return {100.0, 1.0};
        case Dimension::HundredthsOfInch:
            return {254.0, 1.0};
        case Dimension::Microns:
            return {1.0, 1.0};
        case Dimension::HundredthsOfMillimeter:
            return {10.0, 1.0};
        case Dimension::ThousandthsOfInch:
            return {254.0, 10.0};
    }
    return {0.0, 1.0};
}

}  // namespace

Dimension::Dimension(double value, UnitsEnum unit) : m_value(value), m_unit(unit) {}

Dimension::~Dimension() = default;

double Dimension::MicronsPerUnit(UnitsEnum unit) {
    Ratio ratio = RatioOf(unit);
    return ratio.microns / ratio.per;
}

double Dimension::GetDoubleValue(UnitsEnum unit) const {
    Ratio from = RatioOf(m_unit);
    Ratio to = RatioOf(unit);
    if (from.microns == 0.0 || to.microns == 0.0) return 0.0;
    if (unit == m_unit) return m_value;
    return m_value * from.microns * to.per / (from.per * to.microns);
}

Number Dimension::GetValue(UnitsEnum unit) const {
    return Number(GetDoubleValue(unit));
}
