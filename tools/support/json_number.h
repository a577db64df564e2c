// Numbers of the JSON the tools write: the JSON library writes the shortest
// text that reads back as the same double, so a figure rounded here first
// comes out with the digits printf's "%.Nf" gives it (less trailing zeros
// past the first decimal).
#ifndef FACEDET_TOOLS_JSON_NUMBER_H
#define FACEDET_TOOLS_JSON_NUMBER_H

#include <cmath>
#include <cstdio>
#include <cstdlib>

// `value` rounded to `decimals` places exactly as printf rounds it. Values
// past 1e15 (and NaN) stay as they are: they have no decimals to round.
inline double printf_rounded(double value, int decimals) {
    if (!(std::fabs(value) < 1e15)) {
        return value;
    }
    char text[64];
    snprintf(text, sizeof text, "%.*f", decimals, value);
    return std::strtod(text, nullptr);
}

#endif
