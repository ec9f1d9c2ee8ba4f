/// @file
/// Where the two halves of the program meet.
#pragma once

/// The program but for the doctor, in a library of its own: it is linked to the library.
/// @return  an exit code
extern "C" __attribute__((visibility("default"))) int tessadrin_main(int argc, char** argv);
