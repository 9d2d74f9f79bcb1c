// dimension.h: Dimension, a length with a unit, convertible to any other unit. Lengths are held
// exactly as given and converted through micrometres on request.
#pragma once

#include "support/utilities/number.h"

class Dimension {
public:
    // Units and their values (the values are stored in driver data and must not change):
    //   0 Inches                  25,400 um
    //   1 Points                  1/72 inch
    //   2 Millimeters             1,000 um
    //   3 Centimeters             10,000 um
    //   4 Pixels96                1/96 inch (the XPS device-independent pixel)
    //   5 Twips                   1/1440 inch
    //   6 TenthsOfMillimeter      100 um (the driver's form records)
    //   7 HundredthsOfInch        254 um
    //   8 Microns                 1 um (PrintTicket lengths)
    //   9 HundredthsOfMillimeter  10 um
    //  10 ThousandthsOfInch       25.4 um (mils)
    enum UnitsEnum : int {
        Inches = 0,
        Points = 1,
        Millimeters = 2,
        Centimeters = 3,
        Pixels96 = 4,
        Twips = 5,
        TenthsOfMillimeter = 6,
        HundredthsOfInch = 7,
        Microns = 8,
        HundredthsOfMillimeter = 9,
        ThousandthsOfInch = 10,
    };

    // A value outside the enumeration is an unknown unit: such a Dimension is a length of 0,
    // and converting to an unknown unit gives 0.
    Dimension(double value, UnitsEnum unit);
    ~Dimension();

    Number GetValue(UnitsEnum unit) const;
    double GetDoubleValue(UnitsEnum unit) const;

    UnitsEnum GetUnit() const { return m_unit; }
    // The value in the unit it was made with.
    double GetOriginalValue() const { return m_value; }

    // Micrometres per unit; 0 for an unknown unit.
    static double MicronsPerUnit(UnitsEnum unit);

private:
    double m_value;
    UnitsEnum m_unit;
};
