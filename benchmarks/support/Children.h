/// @file
/// What can be measured once in a process only, and whole programs.
#pragma once

#include <string>
#include <vector>

namespace Benchmarks {

/// What a program took, as the system tells.
struct Cost {
    double processor = 0;  ///< seconds, of all its threads
    double wall = 0;       ///< seconds
    double memory = 0;     ///< bytes, at most
    std::string output;    ///< what it wrote to its standard output
};

/// Runs a program to its end; its standard error goes nowhere.
/// @throws std::runtime_error  it can't be started, or doesn't end with 0
Cost Run(const std::vector<std::string>& arguments);

double Median(std::vector<double> values);

}  // namespace Benchmarks
