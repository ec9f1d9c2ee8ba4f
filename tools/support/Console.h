/// @file
/// Standard error as the program uses it: whole lines, and below them, on a terminal, one status line that
/// comes and goes. Any thread may call these.
#pragma once

#include <string_view>

namespace Quorva::Tool {

/// Writes one line, made harmless for terminals, above the status line.
void WriteLine(std::string_view text);

/// WriteLine() for what went wrong: red where standard error is a terminal that has colours, and NO_COLOR is
/// not set.
void WriteComplaint(std::string_view text);

/// Takes the lines of WriteLine() and WriteComplaint(), as they were given. Set once, in processes whose
/// parent has the terminal; called by any thread.
using LineHandler = void (*)(std::string_view text, bool complaint);
void SetLineHandler(LineHandler handler) noexcept;

/// Shows `text`, made by Printable(), in place of the status line; an empty one takes it away.
void ShowStatus(std::string_view text);

/// Takes the status line away when standard output is a terminal too, where the two would mix. To be called
/// before writing there.
void MakeWayForOutput();

/// Whether a status line can be shown: standard error is a terminal, and standard output doesn't go into a
/// pipe, at whose other end a pager may own the screen.
bool CanShowStatus();

}  // namespace Quorva::Tool
