/// @file
/// The rows of the table, by topic. Each adds its own.
#pragma once

namespace Benchmarks {

void AddLookups();
void AddDetection();
void AddLog();
void AddPictures();
void AddReading();
void AddFailures();

}  // namespace Benchmarks
