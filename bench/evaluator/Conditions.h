// Twelve conditions as they stand in plants, in four languages.
#pragma once

#include <array>
#include <atomic>
#include <span>

/// Where the values lie.
using CellList = std::array<const std::atomic<double>*, 8>;

struct Condition
{
    const char* name;
    const wchar_t* expression;  // variables [B.V0] to [B.V7]
    const char* muparser;       // V0 to V7
    const char* lua;            // a function's body over V0[0] to V7[0]
    int (*function)(const CellList& cells, double& value, int& kind);
    std::array<double, 8> values;
};

/// The C++ functions do what an evaluation has to: load the cells, refuse values and results that aren't finite, and give
/// a code, a value and a kind.
std::span<const Condition> Conditions();
