/*
 * vln_pe_sample.cpp: the one sampling rule of the engine, and the guard of
 * the truncating rounding mode under which sampling loops convert positions
 * to cells. This file is compiled with -frounding-math, so that the compiler
 * keeps the conversions where the mode is in force.
 */
#include <cfenv>
#include <cmath>

#include "vln_pe_internal.h"

vln_pe::RoundingMode::RoundingMode(int mode) : saved_(std::fegetround())
{
    std::fesetround(mode);
}

vln_pe::RoundingMode::~RoundingMode()
{
    std::fesetround(saved_);
}

vln_pe::TruncatingRounding::TruncatingRounding() : RoundingMode(FE_TOWARDZERO) {}

vln_pe::NearestRounding::NearestRounding() : RoundingMode(FE_TONEAREST) {}

int64_t vln_pe::hardware_int(double value)
{
    return std::llrint(value);
}

void setup_sample_array(int *array, int count, double source_span, double destination_span,
                        double start)
{
    if (array == nullptr || count <= 0) return;
    if (source_span == destination_span) {
        for (int i = 0; i < count; i++) array[i] = static_cast<int>(start + i);
        return;
    }
    const double step = source_span / destination_span;
    vln_pe::TruncatingRounding truncating;
    double position = start;
    for (int i = 0; i < count; i++) {
        array[i] = static_cast<int>(vln_pe::hardware_int(position));
        position += step;
    }
}
