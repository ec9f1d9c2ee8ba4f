/// @file
/// What is to be known about this FFmpeg before the library is loaded, which may end the process.
#pragma once

namespace Quorva::Tool {

/// Whether the command line asks for the doctor.
bool IsDoctorWanted(int argc, char** argv);

/// `tessadrin doctor`: does what the library does while it is loaded, step by step, and says what becomes of
/// it; lists what this FFmpeg lacks of all that the library would use.
/// @return  an exit code: 0 when the library can be loaded
int RunDoctor(int argc, char** argv);

}  // namespace Quorva::Tool
